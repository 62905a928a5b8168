// mesh/tolerances.h - every number that a geometric decision is held against, and the two that the
// user sets. All are absolute, in the units of the input file, unless their name says otherwise.
// Closed bounds: a distance of exactly the tolerance still counts as equal.
#pragma once

namespace velmora {

/// Two points are equal when they differ by at most this on each axis (option -m).
extern float merge_tol;

/// Coordinates of a larger absolute value are dropped with their triangle (option -K).
extern double kill_value;

constexpr float k_default_merge_tol = 1.0e-6f;
constexpr double k_default_kill_value = 1.0e10;

/// A vector this short has no direction; also the general eps of the vertex classification.
constexpr double k_unit_eps = 1.1920928955078125e-7;

/// Float 1e-6, widened: a line this close to a plane's direction runs parallel to it; also the
/// snapping distance of the point-in-polygon test and of the grid test.
constexpr double k_plane_eps = 9.999999974752427e-07;

/// A component of a clean normal strictly within this of zero becomes zero.
constexpr double k_clean_nrm_eps = 1e-6;

/// Smallest normal float, widened: points that differ by no more coincide.
constexpr double k_coincide_eps = 1.1754943508222875e-38;

/// Largest float, widened.
constexpr double k_far = 3.4028234663852886e+38;

/// A corner whose cosine is at or beyond this, either sign, is too flat to give a normal.
constexpr double k_flat_corner_cos = 0.996;

/// A normal's component must exceed this for its axis to be dropped in a projection.
constexpr double k_axis_component_min = 0.1;

/// Margin of a freshly read triangle's box, in units of merge_tol: points within merge_tol of each
/// other then always have a leaf in common.
constexpr double k_reader_margin = 1.415;

/// Corners of the box that holds nothing.
constexpr float k_empty_box = 1e30f;

/// The run's value of pi, in this and no other length.
constexpr double k_pi = 3.1415927;

} // namespace velmora
