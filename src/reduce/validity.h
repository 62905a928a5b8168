// reduce/validity.h - may a vertex be merged onto a neighbour, and the merge itself.
//
// The one move of the reduction: vertex V goes onto T, one end of an edge of V's fan. A trial puts
// V's coordinates at T, so that all fan triangles see the move at once, asks the tests, and puts
// them back. A refused trial leaves one trace, on purpose: the degenerate marks of the triangles
// that a normal was computed for. A committed move can't be undone.
#pragma once

#include "mesh/records.h"
#include "reduce/vtx_table.h"

#include <cstdint>

namespace velmora {

constexpr std::uint32_t k_most_valence = 10000; ///< no pass looks at a larger fan

/// A vertex under judgement: what every test needs to know of it.
struct vtx_site {
    const reduce_params* params;
    vtx_table* table;
    std::uint32_t place; ///< in the table
    vtx_info* info;
    vtx_h v;
    vtx_fan fan;
};

/// The site of the vertex at `place`.
vtx_site site_of(vtx_table* table, const reduce_params& params, std::uint32_t place);

/// Tests that a trial runs, in this order.
enum trial_test : unsigned {
    test_edges = 1,   ///< no fan edge at V longer than max_edge
    test_normals = 2, ///< no fan triangle turns by more than a right angle
    test_heights = 4, ///< no triangle becomes too thin, none too thin gets thinner
    test_angles = 8,  ///< no triangle becomes too sharp, none too sharp gets sharper

    test_shape = test_normals | test_heights | test_angles,
};

/// Tries V on T with the tests in the bit set `tests`; V stands where it was afterwards.
bool trial_passes(const vtx_site& site, vtx_h target, unsigned tests);

/// V would turn no fan triangle by more than a right angle. V stands on its trial place.
bool vtx_normals_ok(const vtx_site& site);

/// No fan edge at V is longer than max_edge, as V stands.
bool vtx_edges_ok(const vtx_site& site);

/// Height over longest edge of all fan triangles, V going from `before` to `after`.
bool vtx_height_ok(const vtx_site& site, const float* before, const float* after);

/// Sharpest angle of all fan triangles, V going from `before` to `after`.
bool vtx_angle_ok(const vtx_site& site, const float* before, const float* after);

/// The fan as it stands holds no triangle with an angle under the limit.
bool vtx_fan_angles_ok(const vtx_site& site);

/// The neighbour over the shortest edge under max_edge, the first of equals; none when no edge is
/// shorter, or max_edge is off.
vtx_h vtx_shortest_nb(const vtx_site& site);

/// Puts T in V's place in all fan triangles and in the table, and computes the fan's normals for
/// good, or takes them over from the trial of this move if that was the last one. The place that V
/// leaves goes into `moved`, except in mode 4.
void vtx_commit(const vtx_site& site, vtx_h target);

/// Locks V and all corners of its fan for the rest of the cycle.
void lock_fan(const vtx_site& site);

/// lock_fan, and V counts as removed.
void mark_removed(const vtx_site& site);

} // namespace velmora
