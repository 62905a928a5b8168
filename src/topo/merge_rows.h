// topo/merge_rows.h - the merge of a cluster of places, with a look only at pairs that may merge.
//
// The merge compares each member of a cluster with all behind it, and what it changes on the way
// decides what comes later. But it changes something only where the two have different vertices
// that are close to each other, and mostly few of those are left after the first rows. So each
// vertex of the cluster keeps a list of its users, a grid whose cells are as wide as the tolerance
// finds the vertices close to one, and a row visits, in order, just the users of those. What a row
// meets is the same, in the same order, as if it visited all.
#pragma once

#include "topo/leaf_points.h"

#include <cstdint>

namespace velmora {

struct near_vertex;
struct corner_use;

/// Scratch, kept from cluster to cluster; all zero is fresh.
struct merge_rows {
    std::uint32_t capacity;   ///< members that there is room for
    near_vertex* vertices;    ///< of the cluster; owned
    std::uint32_t vtx_count;  ///< of them
    corner_use* uses;         ///< three for each member; owned
    std::uint32_t* heads;     ///< hash of the grid's cells, first used for the handles; owned
    std::uint32_t head_count; ///< a power of two, as this cluster needs it
    std::uint64_t* waiting;   ///< a bit for each member that the row still has to visit; owned
    std::uint32_t live;       ///< vertices that members yet to come have
};

constexpr std::uint32_t k_most_in_rows = 1u << 28; ///< members that a cluster may have

/// Merges the corners of the cluster's members, which stand in list order, row by row.
/// @return the pairs that were merged; -1 when memory ran out; nothing was merged then
[[nodiscard]] std::int64_t merge_by_rows(const leaf_points& leaf, const point_cluster& cluster,
                                         merge_rows* rows);

/// Gives the memory back.
void merge_rows_free(merge_rows* rows);

} // namespace velmora
