// repair/stitch.h - links the triangles whose edges agree exactly in their coordinates.
//
// One sort finds the easy majority of neighbours, in either winding; what it leaves open falls to
// the search through the tree.
#pragma once

#include "mesh/obj_list.h"
#include "repair/edge_groups.h"
#include "repair/edge_sort.h"

namespace velmora {

/// Links equal edges among the triangles of `objs`, except those with more than two users. Both
/// triangles of a link then have the same two vertex records on it.
/// @return false when memory ran out; no link has then been made
[[nodiscard]] bool stitch_edges(const obj_list& objs);

/// The same for triangles whose vertices are distinct (vertices_are_distinct): no sort is needed,
/// and no corner changes its record.
void stitch_distinct(edge_groups* groups);

/// Takes all records of edges with more than two users out of a sorted table.
void edge_drop_crowded(edge_sort* table);

/// Links each live edge of a sorted table to the next equal one. What is linked is taken out.
void edge_match(edge_sort* table);

/// Links the triangles of two records of equal edges and takes the four records out. Does nothing
/// to triangles with the same three vertices, nor where a slot has another neighbour already.
void edge_link(edge_sort* table, std::uint32_t a, std::uint32_t b);

} // namespace velmora
