// plg/open_corners.h - where open boundaries can go on, found by position.
//
// To go on from a point one wants the first triangle, in the order of the tree and of its leaves'
// lists, that has a corner exactly there with one of its two edges open. Looking through leaves for
// each step would cost the length of their lists, which has no bound; so one walk notes all such
// corners, leaf by leaf, and a hash finds those of a point in the order of the walk.
//
// Valid while nothing changes a link, a position or the tree.
#pragma once

#include "mesh/context.h"

#include <cstdint>

namespace velmora {

/// A corner with exactly one open edge, as met in one leaf.
struct open_corner {
    float pnt[3];
    obj_h obj;
    const aabb* leaf_box; ///< of the leaf that lists `obj`
    std::uint32_t next;   ///< the next one with the same hash, one-based; 0 none
};

/// All of them; all zero is the empty table.
struct open_corner_tbl {
    open_corner* corners; ///< in the order of the walk; owned
    std::uint32_t count;
    std::uint32_t capacity;
    std::uint32_t* heads; ///< first corner of each hash, one-based; owned
    std::uint32_t mask;   ///< number of heads less one
};

/// Adds the open corners of `obj` as listed in a leaf; false when memory ran out.
[[nodiscard]] bool open_corners_add(open_corner_tbl* tbl, obj_h obj, const aabb& leaf_box);

/// Makes what was added ready to be searched; false when memory ran out.
[[nodiscard]] bool open_corners_index(open_corner_tbl* tbl);

void open_corners_free(open_corner_tbl* tbl);

/// The first object with an open corner exactly at `p` among those that do not bear `used_stamp`
/// and stand in a leaf that overlaps `box`; none when there is none. A used object is forgotten,
/// so the stamp must stay the same from search to search.
obj_h find_next_tr(open_corner_tbl* tbl, const float* p, const aabb& box, std::uint32_t used_stamp);

} // namespace velmora
