// plg/plg.h - boundary polygons: the corners that one meets when following the open edges.
//
// A polygon of n points has n - 1 segments; segment i joins the points i and i + 1. A closed
// polygon repeats its first point at its end. Points are copies of corners, and both ends of a
// polygon grow at constant cost. A segment's source is a link that keeps nothing alive: the
// polygons serve to give the open vertices their normals, and while that goes on no triangle dies.
//
// A point has no normal, no attribute block and no way back to its polygon, and a segment neither a
// position nor a number: nobody would read them. Weight and id are carried for whoever looks at a
// polygon in a debugger or a test.
#pragma once

#include "mesh/records.h"

#include <cstdint>

namespace velmora {

/// A place on the boundary.
struct plg_point {
    float pnt[3];
    float weight;     ///< corner value of the triangle's corner
    std::uint32_t id; ///< k_traced_point
};

constexpr std::uint32_t k_traced_point = 1; ///< id of the points that the tracing makes

/// One step along the boundary.
struct plg_seg {
    obj_h source; ///< object of the triangle that has the edge
};

/// A row of items with room at both ends; all zero is the empty row.
template <class item_t> struct plg_row {
    item_t* block;          ///< owned
    std::uint32_t capacity; ///< items that the block has room for
    std::uint32_t first;    ///< place of item 0 in the block
    std::uint32_t count;    ///< items in use

    item_t& operator[](std::uint32_t i) const
    {
        return block[first + i];
    }
};

/// One polygon; all zero is the empty one. Lives in its cell.
struct plg_rec {
    plg_row<plg_point> points;
    plg_row<plg_seg> segs;
};

/// One cell of the list of polygons. New cells go in front.
struct plg_cell {
    plg_rec plg;
    plg_cell* next;
};

/// Makes room for `count` points, and the segments between them, in an empty polygon.
/// @return false when memory ran out
[[nodiscard]] bool plg_reserve(plg_rec* plg, std::uint32_t count);

/// Appends a point; false when memory ran out, and the polygon stands.
[[nodiscard]] bool plg_add_point(plg_rec* plg, const plg_point& point);

/// Puts a point in front of all others; false when memory ran out, and the polygon stands.
[[nodiscard]] bool plg_insert_point(plg_rec* plg, const plg_point& point);

/// Appends a segment; false when memory ran out, and the polygon stands.
[[nodiscard]] bool plg_add_seg(plg_rec* plg, obj_h source);

/// Puts a segment in front of all others; false when memory ran out, and the polygon stands.
[[nodiscard]] bool plg_insert_seg(plg_rec* plg, obj_h source);

/// At least three points, and the last equals the first within merge_tol.
bool plg_is_closed(const plg_rec& plg);

/// The vertex that point `i` came from: the first corner within merge_tol of the point in the
/// triangle of its segment; the last point is looked up in segment 0. None when no corner is near.
vtx_h plg_point_vtx(const plg_rec* plg, std::uint32_t i);

/// Puts a cell with an empty polygon in front of `*head`.
/// @return the cell, or null when memory ran out; the list then stands
[[nodiscard]] plg_cell* plg_list_push(plg_cell** head);

/// Takes out the cell that `*link` names, with its polygon; `*link` then names the next one.
void plg_list_remove(plg_cell** link);

/// Frees all cells with their polygons and makes the list empty.
void plg_list_free(plg_cell** head);

} // namespace velmora
