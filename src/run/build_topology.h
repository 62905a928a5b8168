// run/build_topology.h - the first half of a turn: from triangles in a tree to an oriented mesh.
#pragma once

#include "mesh/context.h"

#include <cstdint>

namespace velmora {

/// Merges vertices (in the first cycle of the run), links neighbours, orients the components,
/// labels axis-square triangles and removes degenerate ones. The first cycle logs what it found.
[[nodiscard]] stage_result build_topology(std::int32_t cycle, std::int32_t* err, mesh_ctx* ctx);

} // namespace velmora
