// mesh/box.h - boxes and the tests on them.
//
// Boxes are closed: touching boxes overlap, a point on the face is inside. Every test is a
// greater-than on floats, so equal and unordered values (NaN) never separate.
#pragma once

#include "mesh/records.h"
#include "mesh/tolerances.h"

namespace velmora {

/// The box that holds nothing; every box starts from it.
constexpr aabb k_no_box = {{k_empty_box, k_empty_box, k_empty_box},
                           {-k_empty_box, -k_empty_box, -k_empty_box}};

/// Grows `box` by a point: per axis minimum, then maximum.
inline void box_add(aabb* box, const float* pt)
{
    for (int i = 0; i < 3; ++i) {
        if (pt[i] < box->min[i]) box->min[i] = pt[i];
        if (pt[i] > box->max[i]) box->max[i] = pt[i];
    }
}

/// Moves all six faces outwards by `margin`, in double, narrowed.
inline void box_widen(aabb* box, double margin)
{
    for (int i = 0; i < 3; ++i) {
        box->min[i] = static_cast<float>(static_cast<double>(box->min[i]) - margin);
        box->max[i] = static_cast<float>(static_cast<double>(box->max[i]) + margin);
    }
}

/// Whether there is a point in the box; with a NaN for a face there is none.
inline bool box_holds_something(const aabb& box)
{
    return box.min[0] <= box.max[0] && box.min[1] <= box.max[1] && box.min[2] <= box.max[2];
}

inline bool box_overlap(const aabb& a, const aabb& b)
{
    for (int i = 0; i < 3; ++i)
        if (a.min[i] > b.max[i] || b.min[i] > a.max[i]) return false;
    return true;
}

inline bool pt_in_box(const aabb& box, const float* pt)
{
    for (int i = 0; i < 3; ++i)
        if (box.min[i] > pt[i] || pt[i] > box.max[i]) return false;
    return true;
}

/// Exact box of the three corners.
inline aabb box_of_tr(const tr_rec& tr)
{
    aabb box = k_no_box;
    for (int i = 0; i < 3; ++i)
        box_add(&box, corner_pos(tr, i));
    return box;
}

/// Exact box of two points.
inline aabb box_of_seg(const float* a, const float* b)
{
    aabb box = k_no_box;
    box_add(&box, a);
    box_add(&box, b);
    return box;
}

} // namespace velmora
