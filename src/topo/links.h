// topo/links.h - gives each triangle the neighbours across its open edges.
//
// Two triangles are neighbours where they have the same two vertex records on an edge; positions
// and winding play no part. A slot holds one neighbour: a third triangle on an edge is an edge
// error, which is recorded and not linked. Slots that are set are never looked at again, so the
// links that stitching made and that the reduction kept stand.
#pragma once

#include "mesh/context.h"
#include "mesh/records.h"

#include <cstdint>

namespace velmora {

/// Searches a partner for every empty slot of every triangle in the tree: in the table topo->sides
/// where one is enough to know, else, or without that table, through the tree. Edge errors go into
/// the lists and counters of `topo`; one that memory has no room for reads as a partner not found.
/// @param[out] err  err_no_memory when memory ran out before the pass, otherwise left as it was
[[nodiscard]] stage_result link_nbrs(topo_ctx* topo, std::int32_t* err, mesh_ctx* ctx);

/// Searches a partner for the triangle of `obj` across its edge `i`, in the leaves that contain the
/// edge's first corner: the others cannot know more.
/// @return whether the slot is set
bool find_nbr(obj_h obj, int i, topo_ctx* topo, mesh_ctx* ctx);

} // namespace velmora
