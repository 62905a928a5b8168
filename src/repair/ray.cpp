#include "repair/ray.h"

#include "mesh/box.h"
#include "mesh/measure.h"
#include "mesh/plane.h"
#include "mesh/vec.h"

#include <limits>

namespace velmora {

namespace {

constexpr double k_longest_exit = 1e30; ///< distance to a box's face, when no face is nearer
constexpr double k_end_margin = 1000.0; ///< steps past the model's box, in units of merge_tol
constexpr double k_step_growth = 10.0;  ///< of a step too short to change a coordinate
constexpr int k_most_steps = 4096;      ///< on the way out of one leaf

// A ray and what it met so far.
struct seed_ray {
    obj_h seed;         // the object that it starts on, never counted
    float at[3];        // where the walk stands
    float end[3];       // outside the model
    float dir[3];       // unit vector, some components zeroed
    double step;        // how far to push on out of a leaf; grows
    std::uint32_t hits; // triangles crossed
    bool clean;         // all of them cleanly
};

std::uint32_t ray_counter = 0; // tr_rec::walk_mark of the triangles that the last ray met

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

// Moves `end` from the face of `box` to the first of the points k = 1, 2, 3 ... steps along `dir`
// that is outside. Once inside, a coordinate grows with k and leaves the box once and for all, so
// the first k is found by doubling and then halving; k is a whole number held as a double. False
// when no k gets outside: the box has no end, or there is no step.
bool move_past_box(const aabb& box, const float* dir, float* end)
{
    const double unit = k_end_margin * static_cast<double>(merge_tol);
    const auto at_step = [&](double k, float* pt) {
        vec_copy(end, pt);
        vec_along(pt, dir, unit * k);
    };
    const auto is_outside = [&](double k) {
        float pt[3];
        at_step(k, pt);
        return !pt_in_box(box, pt);
    };
    double high = 1.0;
    for (; !is_outside(high); high *= 2.0)
        if (high > std::numeric_limits<double>::max() / 2.0) return false;
    double low = high / 2.0;
    while (high - low > 1.0) {
        const double mid = low + std::floor((high - low) / 2.0);
        if (!(mid > low && mid < high)) break;
        (is_outside(mid) ? high : low) = mid;
    }
    float past[3];
    at_step(high, past);
    vec_copy(past, end);
    return true;
}

// Lifts the ray off its seed and finds its end; false when the model's box has no room for it.
bool set_out(const aabb& model, seed_ray* ray)
{
    const double tol = static_cast<double>(merge_tol);
    vec_copy(ray->at, ray->end);
    vec_along(ray->end, ray->dir, tol);
    if (!pt_in_box(model, ray->end)) return false;
    ray_to_box_exit(model, ray->dir, ray->end);
    if (!move_past_box(model, ray->dir, ray->end)) return false;
    vec_along(ray->at, ray->dir, tol);
    return true;
}

// Moves the ray out of the box of a leaf, in steps that grow while rounding swallows them; false
// when it does not get out. From the face it takes a step or two and one for each growth; only in
// boxes longer than the longest exit are there endless rows of steps that rounding lets live.
bool leave_leaf(const aabb& box, seed_ray* ray)
{
    ray_to_box_exit(box, ray->dir, ray->at);
    for (int steps = 0; steps < k_most_steps; ++steps) {
        float before[3];
        vec_copy(ray->at, before);
        vec_along(ray->at, ray->dir, ray->step);
        if (!pt_in_box(box, ray->at)) return true;
        if (vec_has_nan(ray->at)) return false;
        const float* at = ray->at;
        if (at[0] != before[0] && at[1] != before[1] && at[2] != before[2]) continue;
        const double grown = ray->step * k_step_growth;
        if (grown == ray->step) return false; // 0 or infinite
        ray->step = grown;
    }
    return false;
}

// Counts what the ray crosses in `leaf` on the rest of its way. A triangle that stands in several
// leaves counts once.
void ray_leaf_test(const cell_node& leaf, seed_ray* ray)
{
    for (const obj_h o : leaf.list) {
        if (o == ray->seed) continue;
        tr_rec& tr = rec(rec(o).tr);
        if ((tr.flags & tr_no_nrm) || tr.walk_mark == ray_counter) continue;
        tr.walk_mark = ray_counter;
        if (!(tr.flags & tr_nrm_done) && !tr.ray_nrm) {
            tr_recompute_nrm(&tr, true, nullptr);
            tr.flags &= ~static_cast<std::uint64_t>(tr_nrm_done);
            tr.ray_nrm = 1;
        }
        const crossing met = segment_triangle_class(tr, ray->at, ray->end);
        if (met == crossing_miss) continue;
        ++ray->hits;
        if (met == crossing_on_boundary || (tr.flags & tr_edge_err)) ray->clean = false;
    }
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

// The points that tr_line_hit can find between the ends of a segment: they come from one end by a
// share of the difference, in steps that all round upwards or downwards together, so that none gets
// beyond what the whole difference leads to.
struct segment_reach {
    float low[3];
    float high[3];
};

static segment_reach reach_of(const float* from, const float* to)
{
    segment_reach reach;
    float end[3];
    float way[3];
    vec_diff(from, to, way);
    vec_copy(from, end);
    vec_along(end, way, 1.0);
    for (int i = 0; i < 3; ++i) {
        reach.low[i] = from[i] < end[i] ? from[i] : end[i];
        reach.high[i] = from[i] < end[i] ? end[i] : from[i];
    }
    return reach;
}

// Whether all points in reach lie off the outline to a side to which the scan line counts nothing:
// they are outside then.
static bool passes_by(pt_2d low, pt_2d high, const pt_2d* c)
{
    return is_below_all(high.v, c[0].v, c[1].v, c[2].v) ||
           is_above_all(low.v, c[0].v, c[1].v, c[2].v) ||
           is_above_all(low.u, c[0].u, c[1].u, c[2].u);
}

crossing segment_triangle_class(const tr_rec& tr, const float* from, const float* to)
{
    int axis = axis_of_normal(tr.nrm);
    if (axis < 0) axis = axis_from_box(box_of_tr(tr), tr.nrm);
    pt_2d corners[3];
    for (int i = 0; i < 3; ++i)
        corners[i] = project(corner_pos(tr, i), axis);
    const bool swapped = lies_behind(from, to);
    const float* const first = swapped ? to : from;
    const float* const last = swapped ? from : to;
    const segment_reach reach = reach_of(first, last);
    if (passes_by(project(reach.low, axis), project(reach.high, axis), corners))
        return crossing_miss;
    const line_hit hit = tr_line_hit(tr, first, last);
    if (!hit.met || hit.t < 0.0 || hit.t > 1.0) return crossing_miss;
    switch (point_in_polygon_2d(project(hit.pt, axis), corners, 3)) {
    case pt_on_outline:
        return crossing_on_boundary;
    case pt_inside:
        return crossing_inside;
    default:
        return crossing_miss;
    }
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

ray_answer cast_seed_ray(node_h root, node_h leaf, obj_h seed, const float* center,
                         const float* dir)
{
    constexpr ray_answer k_useless = {false, false};
    seed_ray ray = {seed, {}, {}, {}, static_cast<double>(merge_tol), 0, true};
    vec_copy(center, ray.at);
    vec_copy(dir, ray.dir);
    ++ray_counter;
    const aabb& model = rec(root).box;
    node_h at = pt_in_box(rec(leaf).box, center) ? leaf : cell_find_leaf(root, center);
    if (!at || !set_out(model, &ray)) return k_useless;
    while (at && pt_in_box(model, ray.at)) {
        ray_leaf_test(rec(at), &ray);
        if (!leave_leaf(rec(at).box, &ray)) return k_useless;
        at = cell_find_leaf(root, ray.at);
    }
    return {ray.clean, ray.hits % 2 == 1};
}

} // namespace velmora
