// run/reduce_vertices.h - the second half of a turn: vertices get their records, and the passes
// run.
#pragma once

#include "mesh/context.h"

#include <cstdint>

namespace velmora {

/// The next reduce_vertices makes the vertex table anew. Stale from the start of a run.
void mark_vertex_table_stale();

/// Makes or refreshes the vertex table, finds normals, traces the boundaries, classifies, reduces,
/// and logs what was removed. `start_count` is the triangle count at the start of the cycle.
[[nodiscard]] stage_result reduce_vertices(std::uint32_t start_count, std::int32_t* err,
                                           mesh_ctx* ctx);

} // namespace velmora
