// repair/edge_groups.h - the sides of triangles gathered by the edge that they lie on.
//
// Where no two vertex records stand at one position, equal coordinates are equal records, and then
// nothing need be sorted: each side is filed under the lower of its two handles, a handful for each
// vertex, and the few under one vertex fall apart by the other. The groups are those of the sorted
// edge table; their order is not, so they serve where each edge is judged by itself.
#pragma once

#include "mesh/context.h"

#include <cstdint>

namespace velmora {

/// One edge slot of a triangle.
struct edge_side {
    vtx_h far;        ///< the end with the higher handle
    std::uint32_t at; ///< handle of the triangle and the slot: see side_tr, side_slot
};

inline tr_h side_tr(edge_side side)
{
    return {side.at >> 2};
}
inline int side_slot(edge_side side)
{
    return static_cast<int>(side.at & 3);
}

/// Sides of the same edge, next to each other.
struct edge_group {
    const edge_side* first;
    std::uint32_t count;
};

/// All sides of the triangles in the tree; all zero is the empty table. Good as long as no corner
/// changes.
struct edge_groups {
    edge_side* sides;      ///< owned; those of one lower vertex next to each other
    std::uint32_t* starts; ///< by vertex handle, where its sides start; owned; null: no table
    std::uint32_t vtx_count;
    bool in_order; ///< the sides under each vertex are in the order of their far ends
};

constexpr std::uint32_t k_most_grouped = 1u << 29; ///< handles of triangles that a side can name

/// Whether no two of the triangles' vertices have the same position, and every coordinate is a
/// finite number: then edge_groups may stand in for the sorted table. False also when memory ran
/// out.
[[nodiscard]] bool vertices_are_distinct(mesh_ctx* ctx);

/// Files the sides of all triangles in the tree. Without memory, with a triangle that has a vertex
/// twice, or with more triangles than a side can name there is no table.
void edge_groups_build(edge_groups* groups, mesh_ctx* ctx);

void edge_groups_free(edge_groups* groups);

/// Brings the sides under vertex `v` into the order of their far ends; that of equals is no matter.
void edge_groups_sort(const edge_groups& groups, std::uint32_t v);

/// Whether there is a table, and its sides have been brought into order.
inline bool groups_can_be_found(const edge_groups& groups)
{
    return groups.starts && groups.in_order;
}

/// The group of the edge between two vertices, empty when no triangle has it. Needs
/// groups_can_be_found.
edge_group find_edge_group(const edge_groups& groups, vtx_h a, vtx_h b);

/// Hands every group to `visit`; the table is in order afterwards.
template <class visit_fn> void for_each_edge_group(edge_groups* table, const visit_fn& visit)
{
    const edge_groups& groups = *table;
    for (std::uint32_t v = 0; groups.starts && v < groups.vtx_count; ++v) {
        if (!groups.in_order) edge_groups_sort(groups, v);
        const std::uint32_t end = groups.starts[v + 1];
        for (std::uint32_t at = groups.starts[v]; at < end;) {
            std::uint32_t next = at + 1;
            while (next < end && groups.sides[next].far == groups.sides[at].far)
                ++next;
            visit(edge_group{groups.sides + at, next - at});
            at = next;
        }
    }
    table->in_order = true;
}

} // namespace velmora
