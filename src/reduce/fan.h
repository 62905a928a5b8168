// reduce/fan.h - the ordered ring of triangles round each vertex.
//
// A closed fan starts anywhere and goes once round; an open one runs from one free edge to the
// other. Where several fans meet in one vertex only the one that the tree finds first is taken.
// The walk is bounded by the vertex's count of users, so a damaged mesh can't hold it for ever.
#pragma once

#include "reduce/vtx_table.h"

namespace velmora {

/// Builds the fans of all vertices in the table and sets their first types: open or closed; a
/// vertex without a fan keeps its type. A record whose vertex was removed in an earlier cycle stays
/// without a fan.
[[nodiscard]] stage_result vtx_table_refresh(vtx_table* table, std::int32_t* err, mesh_ctx* ctx);

} // namespace velmora
