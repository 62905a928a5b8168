// topo/merge_left.h - which corners the merge may still have to do with.
//
// Two corners merge when they have different vertices that are close to each other. Vertices never
// move, and the merge only lets some of them die. So a vertex that has no other one close to it is
// settled for good, and with it the corners that have it: the leaves still to come need not look at
// them.
#pragma once

#include "mesh/context.h"

#include <cstdint>

namespace velmora {

/// The corners that are left.
struct merge_left {
    std::uint8_t* corners;   ///< by object: bit i for corner i; owned
    std::uint32_t obj_count; ///< objects that have any
    std::uint64_t patience;  ///< entries of lists until it is worth while to look again
};

/// Takes all corners, or with weld_some those of marked triangles, whose marks it clears.
/// @return false when memory ran out
[[nodiscard]] bool merge_left_open(merge_left* left, mesh_ctx* ctx);

/// Gives the memory back.
void merge_left_close(merge_left* left);

/// Told before a list of that many entries is merged: after many of them drops the corners that are
/// settled by now. Without memory for that it does nothing.
void merge_left_pace(merge_left* left, std::uint32_t entries);

} // namespace velmora
