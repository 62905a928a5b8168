#include "topo/merge_pair.h"

#include "mesh/vec.h"

namespace velmora {

std::uint32_t merge_corners(const leaf_entry& a, std::uint32_t a_corners, const leaf_entry& b,
                            std::uint32_t b_corners)
{
    std::uint32_t merged = 0;
    for (int i = 0; i < 3; ++i) {
        if (!(a_corners >> i & 1)) continue;
        for (int j = 0; j < 3; ++j) {
            if (!(b_corners >> j & 1)) continue;
            vtx_h* const p = &rec(a.tr).vtx[i];
            vtx_h* const q = &rec(b.tr).vtx[j];
            if (*p == *q || !pts_equal(rec(*p).pos, rec(*q).pos)) continue;
            const bool to_second = second_stays(*p, *q);
            hand_over(to_second ? p : q, to_second ? *q : *p);
            ++merged;
        }
    }
    return merged;
}

} // namespace velmora
