// topo/merge_pair.h - the merge of the corners of two triangles.
#pragma once

#include "topo/leaf_points.h"

namespace velmora {

/// The vertex with more users stays; on a tie, that of the second corner, which is the later in the
/// list.
inline bool second_stays(vtx_h first, vtx_h second)
{
    return rec(first).refs <= rec(second).refs;
}

/// The slot of the corner that gives way takes the vertex of the other.
inline void hand_over(vtx_h* slot, vtx_h to)
{
    const vtx_h old = *slot;
    *slot = vtx_ref(to);
    vtx_release(old);
}

constexpr std::uint32_t k_all_corners = 7;

/// Merges corners of `a`, which stands before `b` in the list, with those of `b`: each step may
/// change what the next one reads. Returns how many pairs were merged.
/// @param a_corners  bit i: corner i is one of them
std::uint32_t merge_corners(const leaf_entry& a, std::uint32_t a_corners, const leaf_entry& b,
                            std::uint32_t b_corners);

} // namespace velmora
