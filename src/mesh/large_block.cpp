#include "mesh/large_block.h"

#include <cstdlib>

#ifdef __GLIBC__
#include <malloc.h>
#endif
#ifdef __linux__
#include <cstdint>
#include <sys/mman.h>
#include <unistd.h>
#endif

namespace velmora {

#ifdef __linux__

static constexpr std::size_t k_large_page = std::size_t{2} << 20;

// The advice begins with the page of the block's head and so covers all of its mapping: a mapping
// in two parts could not be resized without a copy.
void back_large_block(void* memory, std::size_t size)
{
    if (size < k_large_page) return;
    const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    auto* const block = static_cast<unsigned char*>(memory);
    const std::uintptr_t past_page = reinterpret_cast<std::uintptr_t>(block) % page;
    madvise(block - past_page, past_page + size, MADV_HUGEPAGE);
}

#else

void back_large_block(void*, std::size_t)
{
}

#endif

// A checked build must see each block go, so that it notices who still uses it.
#if defined(__GLIBC__) && !defined(VELMORA_CHECKED)

namespace {

constexpr std::size_t k_least_large = std::size_t{1} << 20;
constexpr int k_most_kept = 16;

struct kept_block {
    void* memory;
    std::size_t size; // usable bytes
};

kept_block kept[k_most_kept];
int kept_count = 0;

// The smallest that is large enough, else the largest.
int best_kept(std::size_t size)
{
    int best = 0;
    for (int i = 1; i < kept_count; ++i) {
        const bool fits = kept[i].size >= size;
        const bool best_fits = kept[best].size >= size;
        const bool smaller = kept[i].size < kept[best].size;
        if (fits && best_fits ? smaller : fits || (!best_fits && !smaller)) best = i;
    }
    return best;
}

} // namespace

void prepare_large_blocks()
{
    mallopt(M_MMAP_THRESHOLD, static_cast<int>(k_least_large));
}

bool keep_large_block(void* memory)
{
    if (!memory || kept_count == k_most_kept) return false;
    const std::size_t size = malloc_usable_size(memory);
    if (size < k_least_large) return false;
    kept[kept_count++] = {memory, size};
    return true;
}

// The heap resizes a block of this size by moving its mapping.
void* take_large_block(std::size_t size)
{
    if (size < k_least_large || kept_count == 0) return nullptr;
    kept_block& best = kept[best_kept(size)];
    void* resized = best.memory;
    const bool fits = best.size >= size && best.size - size <= size / 4;
    if (!fits) resized = std::realloc(best.memory, size);
    if (resized) best = kept[--kept_count];
    return resized;
}

bool drop_large_blocks()
{
    const bool any = kept_count > 0;
    while (kept_count > 0)
        std::free(kept[--kept_count].memory);
    return any;
}

#else

void prepare_large_blocks()
{
}

bool keep_large_block(void*)
{
    return false;
}

void* take_large_block(std::size_t)
{
    return nullptr;
}

bool drop_large_blocks()
{
    return false;
}

#endif

} // namespace velmora
