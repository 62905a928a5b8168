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

/// Orients all triangles of the tree that do not have nrm_done, and stores how many pieces and
/// triangles that were. A piece without a usable ray keeps its winding and is not counted. Takes
/// the table topo->sides, which may be empty, and frees it.
/// @param[out] topo  components, tri_oriented; inconsistent is cleared
/// @return stage_failed when memory ran out; `*err` is set when that was during the spread
[[nodiscard]] stage_result orient_components(topo_ctx* topo, std::int32_t* err, mesh_ctx* ctx);

/// Makes all triangles unreached, so that the next orient_components starts afresh. Those that bear
/// orient_seen get a fresh normal instead and count as reached.
void reset_orientation(mesh_ctx* ctx);

} // namespace velmora
