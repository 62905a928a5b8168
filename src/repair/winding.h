// repair/winding.h - one winding for all triangles that hang together.
//
// The spread uses topology only: a triangle takes its winding from a neighbour that has one, by
// running the edge between them the other way. nrm_done marks a triangle that it has reached.
#pragma once

#include "mesh/context.h"
#include "repair/tr_queue.h"

#include <cstdint>

namespace velmora {

/// Swaps corners `i` and `j` of `t`, and with them what belongs to the corners and the edges. The
/// bits of branch_edges stay where they are.
void swap_corners(tr_h t, int i, int j);

/// Turns `nb` so that it runs edge `slot` of `tr` backwards; nothing when it has been reached.
/// Corners compare by position.
void match_winding(const tr_rec& tr, tr_h nb, int slot);

enum spread_pass : std::uint32_t {
    spread_clean = 1, ///< across the edges of sound triangles with no branch near
    spread_all = 2,   ///< across every link
};

/// What a spread works on.
struct winding_spread {
    tr_queue* queue;             ///< reached triangles whose neighbours wait for a visit
    tr_queue* deferred;          ///< those that the clean pass could not leave on every side
    bool compute;                ///< false: neighbours are marked, but get no normal
    std::uint32_t* normal_count; ///< raised for each normal
};

/// Gives all triangles that can be reached from the queue their winding and normal, breadth first,
/// and empties the queue. A link to a dead triangle is cleared.
/// @return stage_failed with `*err` set when memory ran out
[[nodiscard]] stage_result spread_winding(spread_pass pass, const winding_spread& job,
                                          std::int32_t* err);

} // namespace velmora
