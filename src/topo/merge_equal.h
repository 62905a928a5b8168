// topo/merge_equal.h - the merge of corners all of which are equal to each other.
#pragma once

#include "topo/leaf_points.h"

#include <cstdint>

namespace velmora {

/// Members that stand next to each other, and whose corners in the cluster all have one vertex.
struct equal_run {
    std::uint32_t count;
    vtx_h vtx; ///< none for a member with several
};

/// Scratch, kept from cluster to cluster; all zero is fresh.
struct equal_runs {
    equal_run* now;         ///< the members left; owned
    equal_run* next;        ///< as they stand after a row; owned
    std::uint32_t capacity; ///< members that there is room for
};

/// Merges the corners of a cluster in which all meet, each member with all behind it. Members with
/// one and the same vertex are passed over by the run, so that thousands of copies of a triangle
/// take no quadratic time, also when counts wrap.
/// @return the pairs that were merged; -1 when memory ran out; nothing was merged then
[[nodiscard]] std::int64_t merge_equal(const leaf_points& leaf, const point_cluster& cluster,
                                       equal_runs* runs);

/// Gives the memory back.
void equal_runs_free(equal_runs* runs);

} // namespace velmora
