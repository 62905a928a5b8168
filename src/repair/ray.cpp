#include "repair/ray.h"

#include "mesh/box.h"
#include "mesh/measure.h"
#include "mesh/plane.h"
#include "mesh/vec.h"

#include <cmath>

namespace velmora {

namespace {

constexpr double k_longest_exit = 1e30; ///< distance to a box's face, when no face is nearer

// An outline run through once, edge by edge. The scan line goes from the point towards growing u.
// Where the outline comes to the line at a corner or runs along it, what counts is whether it
// leaves to the side it did not come from: both senses are kept until then.
struct outline_scan {
    pt_2d at;
    std::uint32_t crossings;
    int first;  // sense in which the outline's start left the line, when it began on it
    int arrive; // sense in which it came to the line; 0 when it is not on it
};

bool is_near(float a, float b)
{
    return std::fabs(static_cast<double>(a - b)) <= k_plane_eps;
}

bool is_between(float x, float a, float b)
{
    return (a <= x && x <= b) || (b <= x && x <= a);
}

// An edge that starts on the scan line; true when the point lies on it.
bool scan_leaving(outline_scan* s, pt_2d p, pt_2d q)
{
    if (is_near(p.u, s->at.u)) return true;
    if (is_near(q.v, s->at.v)) return is_between(s->at.u, p.u, q.u);
    const int sense = q.v > p.v ? 1 : -1;
    if (s->arrive == 0) {
        s->first = sense;
    } else if (sense == s->arrive && p.u > s->at.u) {
        ++s->crossings;
    }
    s->arrive = 0;
    return false;
}

// An edge from one side of the line to the other; true when the point lies on it.
bool scan_across(outline_scan* s, pt_2d p, pt_2d q)
{
    const pt_2d at = s->at;
    double x = static_cast<double>(p.u);
    const bool beside = (p.u > at.u && q.u > at.u) || (p.u < at.u && q.u < at.u);
    if (!beside) {
        const double pu = static_cast<double>(p.u - at.u);
        const double pv = static_cast<double>(p.v - at.v);
        x += static_cast<double>(p.u - q.u) * pv / static_cast<double>(q.v - p.v);
        const double y = static_cast<double>(p.v) +
                         static_cast<double>(p.v - q.v) * pu / static_cast<double>(q.u - p.u);
        if (std::fabs(x - static_cast<double>(at.u)) <= k_plane_eps &&
            std::fabs(y - static_cast<double>(at.v)) <= k_plane_eps)
            return true;
    }
    if (x > static_cast<double>(at.u)) ++s->crossings;
    return false;
}

bool scan_edge(outline_scan* s, pt_2d p, pt_2d q)
{
    if (is_near(p.v, s->at.v)) return scan_leaving(s, p, q);
    if (is_near(q.v, s->at.v)) {
        s->arrive = q.v > p.v ? 1 : -1;
        return false;
    }
    const float v = s->at.v;
    const bool across = (p.v > v && q.v < v) || (p.v < v && q.v > v);
    return across && scan_across(s, p, q);
}

pt_2d project(const float* pt, int dropped_axis)
{
    switch (dropped_axis) {
    case 0:
        return {pt[1], pt[2]};
    case 1:
        return {pt[0], pt[2]};
    default:
        return {pt[0], pt[1]};
    }
}

bool lies_behind(const float* from, const float* to)
{
    return from[0] > to[0] || from[1] > to[1] || from[2] > to[2];
}

// Distance from `pt` to the plane of the face of `box` towards which `dir` runs on `axis`.
bool face_dist(const aabb& box, const float* pt, const float* dir, int axis, double* dist)
{
    float u[3] = {0.0f, 0.0f, 0.0f};
    float v[3] = {0.0f, 0.0f, 0.0f};
    u[next3(axis)] = 1.0f;
    v[prev3(axis)] = 1.0f;
    return plane_line_t(dir[axis] > 0.0f ? box.max : box.min, u, v, pt, dir, dist);
}

} // namespace

polygon_side point_in_polygon_2d(pt_2d at, const pt_2d* pts, int n)
{
    outline_scan s = {at, 0, 0, 0};
    for (int i = 0; i < n; ++i)
        if (scan_edge(&s, pts[i], pts[(i + 1) % n])) return pt_on_outline;
    if (s.arrive != 0 && s.arrive == s.first && pts[0].u > at.u) ++s.crossings;
    return s.crossings % 2 ? pt_inside : pt_outside;
}

// Whether the value lies clearly below (or above) all three.
static bool is_below_all(float at, float a, float b, float c)
{
    return at < a && at < b && at < c && !is_near(a, at) && !is_near(b, at) && !is_near(c, at);
}

static bool is_above_all(float at, float a, float b, float c)
{
    return at > a && at > b && at > c && !is_near(a, at) && !is_near(b, at) && !is_near(c, at);
}

// Whether all points in reach lie off the outline to one side of it: they are outside then. Beyond
// it to the right, above and below the scan line counts nothing. To its left it counts each time
// that the outline changes from one side of the line to the other, at corners or between them, and
// a closed outline does that an even number of times: unless a corner has no place.
static bool passes_by(pt_2d low, pt_2d high, const pt_2d* c)
{
    if (is_below_all(high.v, c[0].v, c[1].v, c[2].v) ||
        is_above_all(low.v, c[0].v, c[1].v, c[2].v) || is_above_all(low.u, c[0].u, c[1].u, c[2].u))
        return true;
    const bool has_nan = std::isnan(c[0].v) || std::isnan(c[1].v) || std::isnan(c[2].v);
    return !has_nan && is_below_all(high.u, c[0].u, c[1].u, c[2].u);
}

cross_segment segment_between(const float* from, const float* to)
{
    cross_segment seg;
    const bool swapped = lies_behind(from, to);
    vec_copy(swapped ? to : from, seg.first);
    vec_copy(swapped ? from : to, seg.last);
    seg.is_a_point = pts_equal(from, to);
    float end[3];
    vec_diff(seg.first, seg.last, seg.way);
    vec_copy(seg.first, end);
    vec_along(end, seg.way, 1.0);
    for (int i = 0; i < 3; ++i) {
        seg.low[i] = seg.first[i] < end[i] ? seg.first[i] : end[i];
        seg.high[i] = seg.first[i] < end[i] ? end[i] : seg.first[i];
    }
    return seg;
}

static int axis_to_drop(const tr_rec& tr)
{
    const int axis = axis_of_normal(tr.nrm);
    return axis < 0 ? axis_from_box(box_of_tr(tr), tr.nrm) : axis;
}

static void project_corners(const tr_rec& tr, int axis, pt_2d* corners)
{
    for (int i = 0; i < 3; ++i)
        corners[i] = project(corner_pos(tr, i), axis);
}

static tr_plane plane_of(const tr_rec& tr)
{
    tr_plane plane = {{tr.vtx[0], tr.vtx[1], tr.vtx[2]}, {}, 0.0, {}};
    for (int i = 0; i < 3; ++i)
        vec_copy(corner_pos(tr, i), plane.corners[i]);
    float u[3];
    float v[3];
    edge_vec(tr, 0, u);
    edge_vec(tr, 1, v);
    plane_unit(u, v, plane.unit);
    plane.at = vec_dot(plane.unit, corner_pos(tr, 0));
    return plane;
}

// The point where the segment comes through the plane; false when it does not.
static bool point_in_plane(const tr_plane& plane, const cross_segment& seg, float* pt)
{
    double t = 0.0;
    if (seg.is_a_point || !unit_line_t(plane.unit, plane.at, seg.first, seg.way, &t) || t < 0.0 ||
        t > 1.0)
        return false;
    vec_copy(seg.first, pt);
    vec_along(pt, seg.way, t);
    return true;
}

static crossing class_of_point(const float* pt, int axis, const pt_2d* corners)
{
    switch (point_in_polygon_2d(project(pt, axis), corners, 3)) {
    case pt_on_outline:
        return crossing_on_boundary;
    case pt_inside:
        return crossing_inside;
    default:
        return crossing_miss;
    }
}

crossing segment_triangle_class(const tr_rec& tr, const cross_segment& seg)
{
    const int axis = axis_to_drop(tr);
    pt_2d corners[3];
    project_corners(tr, axis, corners);
    if (passes_by(project(seg.low, axis), project(seg.high, axis), corners)) return crossing_miss;
    float pt[3];
    if (tr_has_equal_corners(tr) || !point_in_plane(plane_of(tr), seg, pt)) return crossing_miss;
    return class_of_point(pt, axis, corners);
}

static bool is_up_to_date(const tr_plane& plane, const tr_rec& tr)
{
    return plane.vtx[0] == tr.vtx[0] && plane.vtx[1] == tr.vtx[1] && plane.vtx[2] == tr.vtx[2];
}

crossing segment_plane_class(const tr_rec& tr, const cross_segment& seg, tr_plane* plane)
{
    if (!is_up_to_date(*plane, tr)) *plane = plane_of(tr);
    float pt[3];
    if (!point_in_plane(*plane, seg, pt)) return crossing_miss;
    const int axis = axis_to_drop(tr);
    const pt_2d corners[] = {project(plane->corners[0], axis), project(plane->corners[1], axis),
                             project(plane->corners[2], axis)};
    if (passes_by(project(pt, axis), project(pt, axis), corners)) return crossing_miss;
    return class_of_point(pt, axis, corners);
}

void ray_to_box_exit(const aabb& box, const float* dir, float* pt)
{
    double nearest = k_longest_exit;
    for (int axis = 0; axis < 3; ++axis) {
        double dist = 0.0;
        if (dir[axis] == 0.0f || !face_dist(box, pt, dir, axis, &dist)) continue;
        if (dist < nearest) nearest = dist;
    }
    if (nearest < 0.0) nearest = 0.0;
    vec_along(pt, dir, nearest);
}

} // namespace velmora
