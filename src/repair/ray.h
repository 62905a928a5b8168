// repair/ray.h - how a ray crosses one triangle, and where it leaves a box.
#pragma once

#include "mesh/records.h"

namespace velmora {

struct pt_2d {
    float u;
    float v;
};

enum polygon_side : int {
    pt_outside,
    pt_inside,
    pt_on_outline,
};

/// Where `at` lies against the closed outline through `pts`, by the parity of crossings.
polygon_side point_in_polygon_2d(pt_2d at, const pt_2d* pts, int n);

enum crossing : int {
    crossing_miss,
    crossing_inside,
    crossing_on_boundary, ///< on an edge or a corner, or too close to tell
};

/// Whether a ray has to give the triangle a normal before it can look at it.
inline bool wants_ray_nrm(const tr_rec& tr)
{
    return !(tr.flags & (tr_no_nrm | tr_nrm_done)) && !tr.ray_nrm;
}

/// The segment between two points, in the order in which its crossings are computed.
struct cross_segment {
    float first[3];
    float last[3];
    /// The points that can be found between the ends: they come from the first by a share of the
    /// difference, in steps that all round upwards or downwards together, so that none gets beyond
    /// what the whole difference leads to.
    float low[3];
    float high[3];
    float way[3];    ///< from first to last
    bool is_a_point; ///< the ends are equal: it crosses nothing
};

/// The same for both orders of the ends.
cross_segment segment_between(const float* from, const float* to);

/// How the segment crosses `tr`. Looks at the triangle along the main axis of its stored normal,
/// which may be zero.
crossing segment_triangle_class(const tr_rec& tr, const cross_segment& seg);

/// The plane of a triangle, as its corners follow each other. Valid while they do.
struct tr_plane {
    vtx_h vtx[3]; ///< the corners; none: not computed yet
    float unit[3];
    double at;           ///< product of `unit` with the first corner
    float corners[3][3]; ///< where they are
};

/// The same for a triangle without equal corners; brings `plane` up to date.
crossing segment_plane_class(const tr_rec& tr, const cross_segment& seg, tr_plane* plane);

/// Moves `pt` along `dir` onto the face of `box` through which it leaves; never backwards. Moves
/// it very far when no face says how far.
void ray_to_box_exit(const aabb& box, const float* dir, float* pt);

} // namespace velmora
