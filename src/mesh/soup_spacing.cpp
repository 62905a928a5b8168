#include "mesh/soup_spacing.h"

#include "mesh/pt_grid.h"

#include <cstring>

namespace velmora {

namespace {

constexpr std::uint32_t k_nothing = 0xFFFFFFFFu;
constexpr std::uint32_t k_cells_ahead = 32;
constexpr std::uint32_t k_most_corners = 0xFFFF; ///< of a place: what a vertex can count
constexpr std::uint64_t k_most_looks = 32;       ///< at other places, for each one

const float* place_pos(const tr_soup& soup, std::uint32_t place)
{
    return &soup.places[std::size_t{3} * place];
}

bool all_finite(const tr_soup& soup)
{
    bool finite = std::isfinite(merge_tol) && merge_tol >= 0.0f;
    for (std::size_t i = 0; i < std::size_t{3} * soup.place_count; ++i)
        finite &= std::isfinite(soup.places[i]);
    return finite;
}

// Places chained by the cell of the grid that they are in. All owned.
struct close_search {
    const tr_soup& soup;
    pt_grid grid;
    std::uint32_t* heads;
    std::uint32_t* nexts; // by place
    std::uint32_t mask;
    std::uint64_t looks_left;
    std::uint8_t* close; // by place, once there are close ones
};

bool search_open(close_search* s)
{
    const std::uint32_t places = s->soup.place_count;
    std::uint64_t heads = 64;
    while (heads < places)
        heads *= 2;
    s->heads = heap_array<std::uint32_t>(heads);
    s->nexts = heap_array<std::uint32_t>(places);
    s->mask = static_cast<std::uint32_t>(heads - 1);
    s->looks_left = k_most_looks * (std::uint64_t{places} + heads);
    if (!s->heads || !s->nexts) return false;
    std::memset(s->heads, 0xFF, sizeof(std::uint32_t) * heads);
    return true;
}

void search_close(close_search* s)
{
    heap_free(s->heads);
    heap_free(s->nexts);
}

bool mark(std::uint32_t place, close_search* s)
{
    if (!s->close) {
        s->close = heap_array<std::uint8_t>(s->soup.place_count);
        if (!s->close) return false;
        std::memset(s->close, 0, s->soup.place_count);
    }
    s->close[place] = 1;
    return true;
}

// Marks the places with more corners than a vertex can count: which of their vertices go on then
// depends on the order of the merge.
bool mark_crowded(close_search* s)
{
    const tr_soup& soup = s->soup;
    auto* users = heap_array<std::uint32_t>(soup.place_count);
    if (!users) return false;
    std::memset(users, 0, sizeof(std::uint32_t) * soup.place_count);
    bool marked = true;
    for (std::size_t i = 0; i < std::size_t{3} * soup.count && marked; ++i)
        if (++users[soup.corners[i]] > k_most_corners) marked = mark(soup.corners[i], s);
    heap_free(users);
    return marked;
}

// Compares a place with those before it, and adds it to them.
bool add_place(std::uint32_t place, const grid_cell& cell, close_search* s)
{
    const float* pos = place_pos(s->soup, place);
    const bool looked = for_each_close_cell(cell, [&](std::uint32_t hash) {
        for (std::uint32_t p = s->heads[hash & s->mask]; p != k_nothing; p = s->nexts[p]) {
            if (s->looks_left-- == 0) return false;
            if (are_close(s->grid, place_pos(s->soup, p), pos) && !(mark(p, s) && mark(place, s)))
                return false;
        }
        return true;
    });
    const int here[3] = {0, 0, 0};
    std::uint32_t& head = s->heads[cell_hash(cell, here) & s->mask];
    s->nexts[place] = head;
    head = place;
    return looked;
}

// The same for a run of places. The heads are all over a table larger than the cache: those of the
// cells themselves are fetched before the first is looked at.
bool add_run(std::uint32_t first, close_search* s)
{
    const std::uint32_t left = s->soup.place_count - first;
    const std::uint32_t count = left < k_cells_ahead ? left : k_cells_ahead;
    grid_cell cells[k_cells_ahead];
    const int here[3] = {0, 0, 0};
    for (std::uint32_t i = 0; i < count; ++i) {
        cells[i] = cell_of(s->grid, place_pos(s->soup, first + i));
        __builtin_prefetch(&s->heads[cell_hash(cells[i], here) & s->mask]);
    }
    bool looked = true;
    for (std::uint32_t i = 0; i < count && looked; ++i)
        looked = add_place(first + i, cells[i], s);
    return looked;
}

bool find_close(close_search* s)
{
    bool looked = search_open(s);
    for (std::uint32_t p = 0; p < s->soup.place_count && looked; p += k_cells_ahead)
        looked = add_run(p, s);
    search_close(s);
    return looked;
}

} // namespace

place_spacing soup_spacing(const tr_soup& soup, std::uint8_t** close)
{
    *close = nullptr;
    if (soup.place_count == 0) return places_apart;
    if (!all_finite(soup)) return places_unknown;
    close_search search = {soup, grid_of_tol(), nullptr, nullptr, 0, 0, nullptr};
    if (mark_crowded(&search) && find_close(&search)) {
        *close = search.close;
        return search.close ? places_mixed : places_apart;
    }
    heap_free(search.close);
    return places_unknown;
}

} // namespace velmora
