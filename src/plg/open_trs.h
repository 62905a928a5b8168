// plg/open_trs.h - the triangles with open edges, and where boundaries can go on.
//
// To go on from a point one wants the first triangle, in the order of the tree and of its leaves'
// lists, that has a corner exactly there with one of its two edges open. A look through the leaves
// for each step would cost the length of their lists, which has no bound. So one walk of the tree
// notes these corners, each where it is first met in a leaf near to it, and a hash finds those of
// a point in this order.
//
// Valid while nothing changes a link, a position, merge_tol or the tree.
#pragma once

#include "mesh/context.h"

#include <cstdint>

namespace velmora {

/// A corner with exactly one open edge.
struct open_corner {
    float pnt[3];
    obj_h obj;
    std::uint32_t is_near; ///< some leaf that lists `obj` touches the box round the corner
    std::uint32_t next;    ///< the next one with the same hash, one-based; 0 none
};

/// The open triangles of a mesh; all zero is none.
struct open_trs {
    obj_h* objs; ///< with one neighbour or two, in the order in which the leaves list them; owned
    std::uint32_t obj_count;
    std::uint32_t obj_capacity;
    open_corner* corners; ///< in the order of the leaves near to them; owned
    std::uint32_t corner_count;
    std::uint32_t corner_capacity;
    std::uint32_t* heads; ///< first corner of each hash, one-based; owned
    std::uint32_t mask;   ///< number of heads less one
};

/// The box of all points within merge_tol of `p`.
aabb near_box(const float* p);

/// Finds the open triangles. Triangles without any neighbour go to lone_list, and bear the visit
/// stamp from then on, which nothing bears before; lone_count counts them in each leaf.
/// @return false when memory ran out; `open` is then to be freed all the same
[[nodiscard]] bool open_trs_collect(open_trs* open, mesh_ctx* ctx);

void open_trs_free(open_trs* open);

/// The first object without the visit stamp that has an open corner exactly at `p`, in the order of
/// the leaves that touch the box round `p`; none when there is none. Corners of stamped objects are
/// forgotten on the way.
obj_h find_next_tr(open_trs* open, const float* p, const mesh_ctx* ctx);

/// The same in the order of the leaves that touch `box`, which need not be near `p`.
obj_h find_next_tr_in(open_trs* open, const float* p, const aabb& box, const mesh_ctx* ctx);

} // namespace velmora
