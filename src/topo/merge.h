// topo/merge.h - one vertex record for all corners that are equal within the merge tolerance.
#pragma once

#include "mesh/context.h"

#include <cstdint>

namespace velmora {

/// Merges the corners of the triangles in the tree, pair by pair: leaf by leaf, each object with
/// those after it in the leaf's list, each corner with each. Of two equal points the record with
/// more users stays, on a tie that of the later object, and positions never change. There is no
/// clustering: near points collapse onto each other in this order. Objects whose boxes do not touch
/// are never compared; the reader's margin makes those with equal corners touch and share a leaf.
/// After a planting that left some places to the merge (weld_some) only the triangles that it has
/// marked are looked at, and the marks are taken away.
/// @param[out] err  err_no_memory when memory ran out, otherwise left as it was
[[nodiscard]] stage_result merge_vertices(std::int32_t* err, mesh_ctx* ctx);

} // namespace velmora
