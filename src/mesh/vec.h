// mesh/vec.h - points and vectors: three floats each, and the widths in which they are computed.
//
// A removal near a threshold hangs on the last bit, so the widths are part of every result:
// differences, products and sums of products are float; a length is the double root of a float sum
// of squares; a division by a length is double, narrowed; lengths and cosines travel as doubles.
// An `out` may alias an input only where it says so.
#pragma once

#include "mesh/tolerances.h"

#include <cmath>

namespace velmora {

/// out = a x b.
inline void vec_cross(const float* a, const float* b, float* out)
{
    out[0] = a[1] * b[2] - a[2] * b[1];
    out[1] = a[2] * b[0] - a[0] * b[2];
    out[2] = a[0] * b[1] - a[1] * b[0];
}

/// (y y + x x) + z z in float, then widened.
inline double vec_dot(const float* a, const float* b)
{
    const float sum = (a[1] * b[1] + a[0] * b[0]) + a[2] * b[2];
    return static_cast<double>(sum);
}

inline double vec_len(const float* a)
{
    return std::sqrt(vec_dot(a, a));
}

/// a / len, each component in double, narrowed.
inline void vec_div(float* a, double len)
{
    for (int i = 0; i < 3; ++i)
        a[i] = static_cast<float>(static_cast<double>(a[i]) / len);
}

/// Makes `a` unit in place, without a test: a zero vector gives NaN.
inline void vec_unit(float* a)
{
    vec_div(a, vec_len(a));
}

/// Makes `a` unit in place; a vector shorter than k_unit_eps gives false and stays.
inline bool vec_unit_checked(float* a)
{
    const double len = vec_len(a);
    if (len > -k_unit_eps && len < k_unit_eps) return false;
    vec_div(a, len);
    return true;
}

/// out = a + b; `out` may be either.
inline void vec_add(const float* a, const float* b, float* out)
{
    for (int i = 0; i < 3; ++i)
        out[i] = a[i] + b[i];
}

/// From `a` to `b`: out = b - a; `out` may be either.
inline void vec_diff(const float* a, const float* b, float* out)
{
    for (int i = 0; i < 3; ++i)
        out[i] = b[i] - a[i];
}

inline void vec_copy(const float* a, float* out)
{
    for (int i = 0; i < 3; ++i)
        out[i] = a[i];
}

inline void vec_set(float* out, float x, float y, float z)
{
    out[0] = x;
    out[1] = y;
    out[2] = z;
}

/// out = s a, in float; `out` may be `a`.
inline void vec_scale(const float* a, float s, float* out)
{
    for (int i = 0; i < 3; ++i)
        out[i] = a[i] * s;
}

/// p = p + t d in place, each component in double, narrowed.
inline void vec_along(float* p, const float* d, double t)
{
    for (int i = 0; i < 3; ++i)
        p[i] = static_cast<float>(static_cast<double>(p[i]) + t * static_cast<double>(d[i]));
}

inline bool vec_has_nan(const float* a)
{
    return std::isnan(a[0]) || std::isnan(a[1]) || std::isnan(a[2]);
}

/// Distance; the differences in float, the rest in double.
inline double pt_dist(const float* a, const float* b)
{
    const double dx = static_cast<double>(a[0] - b[0]);
    const double dy = static_cast<double>(a[1] - b[1]);
    const double dz = static_cast<double>(a[2] - b[2]);
    return std::sqrt((dy * dy + dx * dx) + dz * dz);
}

/// Whether no axis has the points further apart than `tol`.
inline bool pts_within(const float* a, const float* b, double tol)
{
    for (int i = 0; i < 3; ++i)
        if (std::fabs(static_cast<double>(a[i] - b[i])) > tol) return false;
    return true;
}

/// Equal within merge_tol per axis: a box test, not a distance, and closed.
inline bool pts_equal(const float* a, const float* b)
{
    return pts_within(a, b, static_cast<double>(merge_tol));
}

/// Equal to within the smallest normal float.
inline bool pts_coincide(const float* a, const float* b)
{
    return pts_within(a, b, k_coincide_eps);
}

/// Equal on all three coordinates, as floats compare.
inline bool pts_same(const float* a, const float* b)
{
    return a[0] == b[0] && a[1] == b[1] && a[2] == b[2];
}

} // namespace velmora
