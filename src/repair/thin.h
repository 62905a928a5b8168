// repair/thin.h - turns the diagonal between a triangle too thin and the neighbour at its longest
// edge, where the two lie in about one plane.
//
// Needs neighbour links and normals, and leaves links incomplete: the new triangles have none, and
// to those around them the edge looks open until the topology is built again.
#pragma once

#include "mesh/context.h"

#include <cstdint>

namespace velmora {

/// Raised by a repair, never cleared.
struct thin_counts {
    std::uint32_t found; ///< thin triangles met
    std::uint32_t fixed; ///< thin triangles that a turned diagonal cured
    std::uint32_t third; ///< no repair counts here
};

/// Height of `tr` over its longest edge, 0 when it has no height.
/// @param[out] corner  the widest corner, -1 when there is none
double thin_ratio(const tr_rec& tr, int* corner);

/// One sweep over the tree. New triangles wait for the next one.
/// @param height_ratio  triangles with a smaller ratio are thin
/// @param angle_tol     least cosine between the normals of two triangles in one plane
/// @return stage_failed with `*err` set when memory ran out; replaced triangles are then still in
/// the tree
[[nodiscard]] stage_result repair_thin_triangles(double height_ratio, double angle_tol,
                                                 thin_counts* counts, std::int32_t* err,
                                                 mesh_ctx* ctx);

} // namespace velmora
