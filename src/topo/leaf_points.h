// topo/leaf_points.h - which corners of the triangles in one leaf can have to do with each other.
//
// Comparing each corner of a leaf with each other takes quadratic time, and leaves at the level
// limit hold thousands. But a merge only ever gives a corner the place of another that is within
// the merge tolerance of it. So the places of a leaf fall into clusters, such that none is within
// the tolerance of one in another cluster, and what happens in one cluster never touches another.
// Mostly a cluster is one place. They are found by a hash over a grid.
#pragma once

#include "mesh/obj_list.h"
#include "mesh/records.h"

#include <cstdint>

namespace velmora {

/// A triangle of the leaf.
struct leaf_entry {
    tr_h tr;
    aabb box; ///< of its object
};

/// An entry that has corners in a cluster.
struct cluster_member {
    std::uint32_t entry;
    std::uint32_t corners; ///< bit i: corner i is one of them
};

/// A cluster of two vertices or more, with two entries or more.
struct point_cluster {
    std::uint32_t first; ///< of its members, which stand in list order
    std::uint32_t count;
    bool all_meet; ///< any two corners are equal within the tolerance, and all boxes overlap
};

struct leaf_place;

/// One leaf. Its memory is kept for the next one; all zero is fresh.
struct leaf_points {
    std::uint32_t entry_count;
    leaf_entry* entries; ///< in list order; owned
    std::uint32_t cluster_count;
    point_cluster* clusters; ///< in no order that matters; owned
    cluster_member* members; ///< owned
    bool clustered; ///< false: coordinates or tolerance are no finite numbers, all may meet

    std::uint32_t capacity;   ///< entries that there is room for
    leaf_place* places;       ///< owned
    std::uint32_t* corner_at; ///< place of each corner that matters; owned
    std::uint32_t* heads;     ///< hash of the positions, then of the grid's cells; owned
    std::uint32_t head_count; ///< a power of two, as this leaf needs it
};

/// Fills `leaf` from a leaf's list; false when memory ran out.
/// @param corners  by object, those that matter: bit i for corner i
[[nodiscard]] bool leaf_points_load(const obj_list& list, const std::uint8_t* corners,
                                    leaf_points* leaf);

/// Gives the memory back.
void leaf_points_free(leaf_points* leaf);

} // namespace velmora
