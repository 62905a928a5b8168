// repair/orient.h - one outward winding and a normal for every connected piece of the mesh.
//
// Which way a piece faces is decided once, by one ray from one of its triangles and the parity of
// what the ray crosses; all others take their winding from a neighbour. Needs neighbour links.
// nrm_done marks what has been reached; a neighbour that has it is left alone, whatever its
// winding.
#pragma once

#include "mesh/context.h"

#include <cstdint>

namespace velmora {

/// Needs the table topo->sides, or none, and frees it.
/// Orients all triangles of the tree that do not have nrm_done, and stores how many pieces and
/// triangles that were. A piece without a usable ray keeps its winding and is not counted.
/// @param[out] topo  components, tri_oriented; inconsistent is cleared
/// @return stage_failed when memory ran out; `*err` is set when that was during the spread
[[nodiscard]] stage_result orient_components(topo_ctx* topo, std::int32_t* err, mesh_ctx* ctx);

/// Sets branch_edges anew for the triangles of `objs`: bit i where three or more edges of them have
/// the end points of edge i, compared exactly.
/// @return false when memory ran out
[[nodiscard]] bool mark_branch_edges(const obj_list& objs);

/// Makes all triangles unreached, so that the next orient_components starts afresh. Those that bear
/// orient_seen get a fresh normal instead and count as reached.
void reset_orientation(mesh_ctx* ctx);

} // namespace velmora
