// reduce/vtx_table.h - one record for every vertex of the mesh, and the ordered fan round it.
//
// The record of the vertex with tbl_index n stands at place n - 1. The table holds one reference on
// each vertex it lists. Fans lie one after another in one array, in table order; they hold nothing
// alive, so they are good only until the tree next loses a triangle. The types stand apart from the
// records: they are read and written at random, and a byte each keeps them in the cache.
#pragma once

#include "mesh/context.h"
#include "mesh/records.h"
#include "reduce/params.h"

#include <cstdint>

namespace velmora {

/// What the passes may do with a vertex.
enum vtx_type : std::uint8_t {
    vtx_unset = 0,
    vtx_no_normal = 1, ///< no direction: not for the plane passes
    vtx_closed = 2,    ///< every fan triangle has both neighbours at the vertex
    vtx_open = 3,      ///< some fan triangle lacks one
    vtx_removed = 10,  ///< gone in this cycle
    vtx_locked = 11,   ///< not to be touched in this cycle
    vtx_on_grid = 12,  ///< kept by the grid
};

/// What is known of one vertex.
struct vtx_info {
    vtx_h vtx;            ///< counted; after a removal the vertex that took its place
    vtx_h entered;        ///< the vertex at first; not counted: removed, it lives or is dead
    std::uint32_t fan_at; ///< first triangle of the fan in vtx_table::fans
    std::uint32_t fan_count;
    float nrm[3];       ///< unit normal or zero
    float moved[3];     ///< modes 1 to 3: the place it was removed from. Mode 4: displacement that
                        ///< removals of neighbours have piled up here in this cycle
    double fan_dot_min; ///< least dot product of consecutive fan normals, last with first included
    double dev;         ///< mode 4: largest height of a neighbour over the tangent plane
};

struct vtx_table {
    vtx_info* infos;
    vtx_type* types; ///< parallel to `infos`
    std::uint32_t count;
    std::uint32_t capacity;
    tr_h* fans;
    std::uint32_t fans_used;
    std::uint32_t fans_capacity;
    std::uint32_t* sorted; ///< mode 4: places of the vertices with a fan, least dev first
    std::uint32_t sorted_count;
};

/// The triangles round one vertex, in walking order.
struct vtx_fan {
    const tr_h* first;
    std::uint32_t count;
};

inline const tr_h* begin(const vtx_fan& fan)
{
    return fan.first;
}
inline const tr_h* end(const vtx_fan& fan)
{
    return fan.first + fan.count;
}

inline vtx_fan fan_of(const vtx_table& table, const vtx_info& info)
{
    return {table.fans + info.fan_at, info.fan_count};
}

/// An empty table with room for a cycle that starts with `start_count` triangles.
[[nodiscard]] stage_result vtx_table_init(std::uint32_t start_count, vtx_table* table,
                                          std::int32_t* err);

/// Enters every vertex of the mesh that has no record, in the order in which a walk over the tree
/// meets them.
[[nodiscard]] stage_result vtx_table_fill(vtx_table* table, mesh_ctx* ctx);

/// Mode 4's measure: fills `dev` of every record with the normals as they stand.
void vtx_dev_all(vtx_table* table);

/// Fills `sorted`; false when memory ran out.
[[nodiscard]] stage_result vtx_table_sort(vtx_table* table);

/// Drops the vertices, which forget their places, and all memory of the table.
void vtx_table_free(vtx_table* table);

/// Drops the fans and `sorted`; the records stay. For mode 4, whose table lives on.
void vtx_table_clear_fans(vtx_table* table);

} // namespace velmora
