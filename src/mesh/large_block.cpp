#include "mesh/large_block.h"

#ifdef __GLIBC__
#include <malloc.h>
#endif
#ifdef __linux__
#include <cstdint>
#include <sys/mman.h>
#include <unistd.h>
#endif

namespace velmora {

void prepare_large_blocks()
{
#ifdef __GLIBC__
    mallopt(M_MMAP_THRESHOLD, 1 << 20);
#endif
}

#ifdef __linux__

static constexpr std::size_t k_large_page = std::size_t{2} << 20;

void back_large_block(void* memory, std::size_t size)
{
    if (size < k_large_page) return;
    const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    auto* const block = static_cast<unsigned char*>(memory);
    const std::uintptr_t past_page = reinterpret_cast<std::uintptr_t>(block) % page;
    const std::size_t skipped = past_page ? page - past_page : 0;
    madvise(block + skipped, (size - skipped) / page * page, MADV_HUGEPAGE);
}

#else

void back_large_block(void*, std::size_t)
{
}

#endif

} // namespace velmora
