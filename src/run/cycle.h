// run/cycle.h - the main loop: turns of topology, repair and reduction while they do some good.
//
// A turn starts from the tree, links and orients it, does its work and ends with a rebuilt tree
// without dead triangles. What a turn makes besides (boundary polygons, lists, tables, in modes 1
// to 3 the vertex table) never outlives it.
#pragma once

#include "mesh/context.h"

#include <cstdint>

namespace velmora {

/// Repeats turns while the number of bad triangles falls, at least two.
/// @param[out] start_count  triangles at the start
/// @param[in,out] cycle     turns of the run so far
[[nodiscard]] stage_result reduce_cycle(std::uint32_t* start_count, std::int32_t* cycle,
                                        std::int32_t* err, mesh_ctx* ctx);

/// The other branch: turns of thin triangle repair, one, or with -P as many as find fewer.
[[nodiscard]] stage_result shape_cycle(std::int32_t* err, mesh_ctx* ctx);

/// Takes the tree down and builds it again from its own objects, with exact boxes; then takes out
/// what has collapsed. A tree of one leaf keeps its boxes.
[[nodiscard]] stage_result rebuild_cell_tree(std::int32_t* err, mesh_ctx* ctx);

/// Triangles with a corner whose cosine exceeds `limit`.
std::uint32_t count_bad_triangles(double limit, mesh_ctx* ctx);

} // namespace velmora
