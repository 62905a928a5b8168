// plg/boundary.h - follows the open edges of the mesh into polygons.
//
// Each triangle with one or two neighbours joins one polygon, and bears the visit stamp from then
// on. A polygon begins at the first such triangle in the order of the tree, grows at its end until
// it closes or nothing goes on from there, and in the latter case at its start. Whether something
// goes on is decided by exact coordinates, and among several triangles by the order of the tree.
#pragma once

#include "mesh/context.h"

#include <cstdint>

namespace velmora {

/// Finds the boundaries of the mesh and splits them where they touch themselves: afterwards
/// ctx->topo->plg_list has the polygons, those that stay open included, and lone_list the triangles
/// without any neighbour, once for each leaf that lists them. Both lists and their counts are added
/// to; plg_list_free and list_free take them back, after a failure too. Takes a new visit stamp and
/// marks the triangles of the polygons with prob_31 and on_boundary.
///
/// The vertices along the polygons get their normals from the caller.
/// @param[out] err  err_no_memory after a failure, otherwise left as it was
[[nodiscard]] stage_result trace_boundaries(std::int32_t* err, mesh_ctx* ctx);

} // namespace velmora
