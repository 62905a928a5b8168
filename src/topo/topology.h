// topo/topology.h - turns a soup of triangles into a mesh, and keeps it one.
//
// The first step of a run merges coincident vertices, takes out what collapsed, stitches equal
// edges and searches the remaining neighbours. Later the vertices are shared and the reduction
// keeps the links, so that a step only drops what collapsed and fills the slots that are empty.
// Afterwards each slot holds the partner across its edge or none; links are mutual.
#pragma once

#include "mesh/context.h"
#include "mesh/records.h"

#include <cstdint>

namespace velmora {

/// The first topology step, on a tree of separate triangles; ctx->topo->reuse is 0, or no vertices
/// are merged. Clears the counters and the edge errors of an earlier step.
/// @param[out] err  err_no_memory when memory ran out, otherwise left as it was
[[nodiscard]] stage_result topo_build(std::int32_t* err, mesh_ctx* ctx);

/// A later step, on a tree whose vertices are shared.
[[nodiscard]] stage_result topo_update(std::int32_t* err, mesh_ctx* ctx);

/// drop_collapsed, then the link pass.
[[nodiscard]] stage_result topo_relink(std::int32_t* err, mesh_ctx* ctx);

/// Lists every object of the tree, in the reverse of the order of discovery. Takes a new visit
/// stamp. After a failure `objs` holds a part; the caller frees it either way.
[[nodiscard]] stage_result collect_objs(obj_list* objs, std::int32_t* err, mesh_ctx* ctx);

/// Takes out every triangle that has a vertex record twice. Such with equal places but three
/// records stay.
[[nodiscard]] stage_result drop_collapsed(std::int32_t* err, mesh_ctx* ctx);

/// Marks triangles with the same three vertices as another with tr_dup, and clears the mark on all
/// others. Of three or more equal ones only a pair gets it. No triangle may be collapsed.
/// @return stage_failed when memory ran out; marks are then missing
[[nodiscard]] stage_result mark_duplicates(mesh_ctx* ctx);

/// The tree's insert hook: refuses a triangle whose three corners coincide.
bool tr_is_point(node_h leaf, obj_h obj);

} // namespace velmora
