// mesh/plane.h - lines against planes, and the axis along which a flat figure is best looked at.
#pragma once

#include "mesh/records.h"

namespace velmora {

/// The axis of the largest component of `n`, the first of equals; -1 for the zero vector.
int axis_of_normal(const float* n);

/// The axis to drop when a flat figure with this box is projected; `n`, its normal, may be null.
int axis_from_box(const aabb& box, const float* n);

/// The unit vector upright on the plane spanned by `u` and `v`; NaN when they span none.
void plane_unit(const float* u, const float* v, float* out);

/// Parameter of the line from `a` in direction `d` at the plane with unit vector `m`, of which a
/// point's product with `m` is `at`.
/// @return false when the line runs parallel; `*out` is then left as it was
bool unit_line_t(const float* m, double at, const float* a, const float* d, double* out);

/// Parameter of the line from `a` in direction `d` at the plane through `p` spanned by `u`, `v`.
/// @return false when the line runs parallel; `*out` is then left as it was
bool plane_line_t(const float* p, const float* u, const float* v, const float* a, const float* d,
                  double* out);

/// Where a line meets the plane of a triangle.
struct line_hit {
    bool met;     ///< there is a point: the two members below are set
    bool between; ///< met, and the parameter lies in the closed range 0 to 1
    double t;     ///< parameter: 0 at the start, 1 at the end
    float pt[3];
};

/// The line from `a` to `b` against the plane of `tr`. Not met when two corners of the triangle
/// are equal, or `a` and `b` are, or the line runs parallel.
line_hit tr_line_hit(const tr_rec& tr, const float* a, const float* b);

} // namespace velmora
