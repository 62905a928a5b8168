// repair/degenerate.h - takes triangles without a plane out of the surface, without opening it.
//
// Needs neighbour links and normals: a triangle is degenerate when it bears no_nrm. One with a
// short edge is collapsed along it. Any other is a cap, its obtuse corner lying on the long edge:
// it and its neighbour there make way for two triangles that meet in that corner.
//
//          q                      q
//         /|\                    / \      p - q - apex is the cap, drawn
//        / | \                  / 1 \     wider than it is; across its
//    apex  |  r      ->     apex --- r    long edge lies p - q - r
//        \ | /                  \ 2 /
//         \|/                    \ /
//          p                      p
//
// The tree and the links stay valid throughout; what neither repair can help keeps its mark.
#pragma once

#include "mesh/context.h"

namespace velmora {

/// Sweeps over the tree as long as sweeps lower the number of degenerate triangles.
/// @param tol  longest length of a short edge
/// @return stage_failed with `*err` set when memory ran out; a triangle may then be missing
[[nodiscard]] stage_result remove_degenerates_pass(double tol, std::int32_t* err, mesh_ctx* ctx);

} // namespace velmora
