// mesh/sort.h - the one sort of the run: a stable merge sort, so that equal keys keep their order
// on every machine, and a comparison that is no strict order (NaN) still ends somewhere definite.
#pragma once

#include <cstddef>
#include <cstring>

namespace velmora {

constexpr std::size_t k_insertion_run = 16;

/// Sorts `n` plain items ascending. `tmp` has room for n items. `less(a, b)`: a goes before b.
template <class item_t, class less_fn>
void merge_sort(item_t* items, item_t* tmp, std::size_t n, const less_fn& less)
{
    for (std::size_t start = 0; start < n; start += k_insertion_run) {
        const std::size_t end = start + k_insertion_run < n ? start + k_insertion_run : n;
        for (std::size_t i = start + 1; i < end; ++i) {
            const item_t item = items[i];
            std::size_t at = i;
            for (; at > start && less(item, items[at - 1]); --at)
                items[at] = items[at - 1];
            items[at] = item;
        }
    }
    item_t* from = items;
    item_t* to = tmp;
    for (std::size_t width = k_insertion_run; width < n; width *= 2) {
        for (std::size_t start = 0; start < n; start += 2 * width) {
            const std::size_t mid = start + width < n ? start + width : n;
            const std::size_t end = start + 2 * width < n ? start + 2 * width : n;
            std::size_t a = start;
            std::size_t b = mid;
            for (std::size_t out = start; out < end; ++out) {
                const bool take_b = b < end && (a == mid || less(from[b], from[a]));
                to[out] = take_b ? from[b++] : from[a++];
            }
        }
        item_t* const swap = from;
        from = to;
        to = swap;
    }
    if (from != items) std::memcpy(items, from, n * sizeof(item_t));
}

} // namespace velmora
