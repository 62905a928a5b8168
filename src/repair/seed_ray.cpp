#include "repair/seed_ray.h"

#include "mesh/box.h"
#include "mesh/checked.h"
#include "mesh/measure.h"
#include "mesh/memory.h"
#include "mesh/vec.h"
#include "repair/ray.h"

#include <bit>
#include <cmath>
#include <limits>

namespace velmora {

// A leaf on a ray's way, and the rest of the way from there.
struct ray_stop {
    leaf_cell leaf;
    float at[3];
    cross_segment rest;
};

namespace {

constexpr double k_end_margin = 1000.0; ///< steps past the model's box, in units of merge_tol
constexpr double k_step_growth = 10.0;  ///< of a step too short to change a coordinate
constexpr int k_most_steps = 4096;      ///< on the way out of one leaf

// An index takes about as long as looking at each triangle some times.
constexpr std::uint64_t k_looks_for_index = bound_or(6u, 0u);

// A ray and what it met so far.
struct seed_ray {
    obj_h seed;         // the object that it starts on, never counted
    float center[3];    // on it
    float at[3];        // where the walk stands
    float end[3];       // outside the model
    float dir[3];       // unit vector, some components zeroed
    double step;        // how far to push on out of a leaf; grows
    std::uint32_t hits; // triangles crossed
    bool clean;         // all of them cleanly
    tr_h spoiler;       // one that was not, of those found near the line
};

std::uint32_t ray_counter = 0; // tr_rec::walk_mark of the triangles that the last ray met

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

void give_nrm(tr_rec* tr)
{
    tr_recompute_nrm(tr, true, nullptr);
    tr->flags &= ~static_cast<std::uint64_t>(tr_nrm_done);
    tr->ray_nrm = 1;
}

void count_crossing(const tr_rec& tr, crossing met, seed_ray* ray)
{
    if (met == crossing_miss) return;
    ++ray->hits;
    if (met == crossing_on_boundary || (tr.flags & tr_edge_err)) ray->clean = false;
}

// Counts what the ray crosses in `leaf` on the rest of its way. A triangle that stands in several
// leaves counts once.
void look_through_leaf(const cell_node& leaf, seed_ray* ray)
{
    const cross_segment rest = segment_between(ray->at, ray->end);
    for (const obj_h o : leaf.list) {
        if (o == ray->seed) continue;
        tr_rec& tr = rec(rec(o).tr);
        if ((tr.flags & tr_no_nrm) || tr.walk_mark == ray_counter) continue;
        tr.walk_mark = ray_counter;
        if (wants_ray_nrm(tr)) give_nrm(&tr);
        count_crossing(tr, segment_triangle_class(tr, rest), ray);
    }
}

bool look_through_leaves(node_h at, seed_ray* ray, ray_caster* caster)
{
    const node_h root = caster->ctx->root;
    const aabb& model = rec(root).box;
    while (at && pt_in_box(model, ray->at)) {
        const cell_node& leaf = rec(at);
        caster->patience -= leaf.list.count < caster->patience ? leaf.list.count : caster->patience;
        look_through_leaf(leaf, ray);
        if (!leave_leaf(leaf.box, ray)) return false;
        at = cell_find_leaf(root, ray->at);
    }
    return true;
}

// One that proves degenerate is held against the ray this once, with its normal of zero.
void give_suspect_nrm(obj_h o, const ray_stop& stop, seed_ray* ray)
{
    tr_rec& tr = rec(rec(o).tr);
    if (o == ray->seed || !wants_ray_nrm(tr) || !box_overlap(stop.leaf.box, rec(o).box)) return;
    give_nrm(&tr);
    if (tr.flags & tr_no_nrm) count_crossing(tr, segment_triangle_class(tr, stop.rest), ray);
}

// All that the leaf lists gets its normal now, but the seed. What is no suspect certainly has one,
// the same whenever it is computed, so it may wait until somebody looks at it. Nothing loses its
// normal within an orientation: after the first ray only that one's seed can be left.
void come_by(const ray_stop& stop, const ray_caster& caster, seed_ray* ray)
{
    std::uint32_t* const seeds = &caster.visits.seeds[stop.leaf.path];
    const obj_h before = {*seeds};
    if (*seeds == k_many_seeds || before == ray->seed) return;
    *seeds = before ? k_many_seeds : ray->seed.i;
    if (before) {
        give_suspect_nrm(before, stop, ray);
        return;
    }
    for_each_suspect_near(caster.index, stop.leaf.box,
                          [&](tr_h t) { give_suspect_nrm(rec(t).cell, stop, ray); });
}

bool add_stop(const leaf_cell& leaf, const seed_ray& ray, ray_caster* caster)
{
    if (caster->stop_count == caster->stop_capacity) {
        const std::uint32_t capacity = 2 * caster->stop_capacity + 64;
        void* grown = heap_realloc(caster->stops, sizeof(ray_stop) * std::size_t{capacity});
        if (!grown) return false;
        caster->stops = static_cast<ray_stop*>(grown);
        caster->stop_capacity = capacity;
    }
    ray_stop* const stop = &caster->stops[caster->stop_count++];
    stop->leaf = leaf;
    vec_copy(ray.at, stop->at);
    stop->rest = segment_between(ray.at, ray.end);
    return true;
}

// How far the stops lie beside the way from the first to the end: steps round.
double stray_of(const ray_caster& caster, const float* end)
{
    const float* from = caster.stops[0].at;
    double way[3];
    double len2 = 0.0;
    for (int i = 0; i < 3; ++i) {
        way[i] = static_cast<double>(end[i]) - static_cast<double>(from[i]);
        len2 += way[i] * way[i];
    }
    double stray = 0.0;
    for (std::uint32_t s = 1; s < caster.stop_count; ++s) {
        double off[3];
        double share = 0.0;
        for (int i = 0; i < 3; ++i) {
            off[i] = static_cast<double>(caster.stops[s].at[i]) - static_cast<double>(from[i]);
            share += off[i] * way[i] / len2;
        }
        share = std::fmin(std::fmax(share, 0.0), 1.0);
        for (int i = 0; i < 3; ++i)
            stray = std::fmax(stray, std::fabs(off[i] - share * way[i]));
    }
    return stray;
}

// The first leaf on the way that lists the object, or none. A leaf lists what its box touches.
const ray_stop* first_stop(const ray_caster& caster, const cell_obj& obj)
{
    for (std::uint32_t s = 0; s < caster.stop_count; ++s)
        if (box_overlap(caster.stops[s].leaf.box, obj.box)) return &caster.stops[s];
    return nullptr;
}

// Counts what the ray crosses from its stops on, until that is not clean.
void look_near_line(const index_line& line, const ray_caster& caster, seed_ray* ray)
{
    const tr_h seed = rec(ray->seed).tr;
    for_each_near_line(caster.index, line, [&](index_entry& entry) {
        tr_rec& tr = rec(entry.tr);
        if (entry.tr == seed || (tr.flags & tr_no_nrm) || tr.walk_mark == ray_counter) return true;
        tr.walk_mark = ray_counter;
        const ray_stop* stop = first_stop(caster, rec(tr.cell));
        if (!stop) return true;
        if (wants_ray_nrm(tr)) give_nrm(&tr);
        count_crossing(tr, segment_plane_class(tr, stop->rest, &entry.plane), ray);
        if (!ray->clean) ray->spoiler = entry.tr;
        return ray->clean;
    });
}

// Zeros of either sign are different here.
bool is_bitwise(const float* a, const float* b)
{
    for (int i = 0; i < 3; ++i)
        if (std::bit_cast<std::uint32_t>(a[i]) != std::bit_cast<std::uint32_t>(b[i])) return false;
    return true;
}

ray_memory* memory_of(const seed_ray& ray, std::uint32_t path, ray_caster* caster)
{
    for (ray_memory& m : caster->last)
        if (m.path == path && is_bitwise(m.center, ray.center) && is_bitwise(m.dir, ray.dir))
            return &m;
    return nullptr;
}

// The ray against one triangle, whatever else it meets.
void meet_tr(const ray_caster& caster, tr_h t, seed_ray* ray)
{
    tr_rec& tr = rec(t);
    const ray_stop* stop = tr.flags & tr_no_nrm ? nullptr : first_stop(caster, rec(tr.cell));
    if (!stop) return;
    if (wants_ray_nrm(tr)) give_nrm(&tr);
    count_crossing(tr, segment_triangle_class(tr, stop->rest), ray);
    if (!ray->clean) ray->spoiler = t;
}

// Many copies of one triangle send out the same ray. It takes the same way as the last one and
// meets the same triangles, but for the two seeds: its own is not counted now, and that of the last
// is, as it stands now. False when the last ray does not tell.
bool recall(const ray_memory& m, const ray_caster& caster, seed_ray* ray)
{
    const tr_h old_seed = rec(m.seed).tr;
    const tr_h seed = rec(ray->seed).tr;
    if (seed == old_seed || m.spoiler == seed) return false;
    if (m.spoiler) {
        ray->clean = false;
        ray->spoiler = m.spoiler;
        return true;
    }
    seed_ray own = *ray;
    own.hits = 0;
    meet_tr(caster, seed, &own);
    meet_tr(caster, old_seed, ray);
    ray->hits += m.hits - own.hits;
    return true;
}

// What the ray counts beyond the degenerates that it has found: those are none for the next.
void count_near_line(const index_line& line, ray_caster* caster, seed_ray* ray)
{
    const std::uint32_t found = ray->hits;
    const std::uint32_t path = caster->stops[0].leaf.path;
    ray_memory* m = memory_of(*ray, path, caster);
    if (!m || !recall(*m, *caster, ray)) look_near_line(line, *caster, ray);
    if (!m) {
        m = &caster->last[caster->turn];
        caster->turn = 1 - caster->turn;
    }
    *m = {path, ray->seed, {}, {}, ray->hits - found, ray->spoiler};
    vec_copy(ray->center, m->center);
    vec_copy(ray->dir, m->dir);
}

enum walk_result {
    walk_done,
    walk_lost,     // it does not get out of a leaf
    walk_no_memory // for its stops
};

walk_result walk_stops(leaf_cell leaf, seed_ray* ray, ray_caster* caster)
{
    const node_h root = caster->ctx->root;
    const aabb& model = rec(root).box;
    caster->stop_count = 0;
    while (pt_in_box(model, ray->at)) {
        if (!add_stop(leaf, *ray, caster)) return walk_no_memory;
        if (!leave_leaf(leaf.box, ray)) return walk_lost;
        if (!find_leaf_cell(root, ray->at, &caster->leaves, &leaf)) break;
    }
    return walk_done;
}

bool open_index(ray_caster* caster)
{
    const std::uint32_t max_level = caster->ctx->max_level;
    if (ray_index_build(&caster->index) && leaf_map_open(max_level, &caster->leaves) &&
        ray_visits_open(max_level, &caster->visits))
        return true;
    ray_index_free(&caster->index);
    leaf_map_close(&caster->leaves);
    return false;
}

// Whether there is an index, now that rays have looked at much.
bool has_index(ray_caster* caster)
{
    if (caster->state == index_not_yet && caster->patience == 0)
        caster->state = open_index(caster) ? index_stands : index_declined;
    return caster->state == index_stands;
}

enum cast_result {
    cast_done,
    cast_useless, // the ray tells nothing
    cast_not_done // the index does not serve; nothing has been changed
};

// With the same outcome as looking through the leaves.
cast_result cast_by_index(const leaf_cell& leaf, seed_ray* ray, ray_caster* caster)
{
    const walk_result walked = walk_stops(leaf, ray, caster);
    if (walked == walk_no_memory) return cast_not_done;
    index_line line;
    const bool fits = caster->stop_count == 0 ||
                      index_line_between(caster->stops[0].at, ray->end, stray_of(*caster, ray->end),
                                         caster->index, &line);
    if (!fits) return cast_not_done;
    ++ray_counter;
    for (std::uint32_t s = 0; s < caster->stop_count; ++s)
        come_by(caster->stops[s], *caster, ray);
    if (walked == walk_lost) return cast_useless;
    if (caster->stop_count != 0 && ray->clean) count_near_line(line, caster, ray);
    return cast_done;
}

cast_result cast_through_leaves(node_h leaf, seed_ray* ray, ray_caster* caster)
{
    if (!leaf) return cast_useless;
    ++ray_counter;
    return look_through_leaves(leaf, ray, caster) ? cast_done : cast_useless;
}

// What has been put off: looking through the leaves would have given all of them a normal.
void give_nrms_put_off(ray_caster* caster)
{
    sum_up_visits(&caster->visits);
    for (std::uint32_t i = 1; i < obj_pool.used; ++i) {
        if (!is_in_tree(rec(obj_h{i}))) continue;
        tr_rec& tr = rec(rec(obj_h{i}).tr);
        if (wants_ray_nrm(tr) && visited_by_others(caster->visits, caster->ctx->root, obj_h{i}))
            give_nrm(&tr);
    }
}

} // namespace

ray_caster ray_caster_open(const mesh_ctx& ctx)
{
    ray_caster caster = {};
    caster.ctx = &ctx;
    caster.patience = k_looks_for_index * (std::uint64_t{ctx.tr_count} + 512);
    return caster;
}

void ray_caster_close(ray_caster* caster)
{
    if (caster->state == index_stands) give_nrms_put_off(caster);
    ray_index_free(&caster->index);
    leaf_map_close(&caster->leaves);
    ray_visits_close(&caster->visits);
    heap_free(caster->stops);
    *caster = {};
}

// A ray that started elsewhere would have to ask the seed as it was before.
void ray_caster_settled(obj_h seed, bool alone, ray_caster* caster)
{
    for (ray_memory& m : caster->last)
        if (!alone || m.seed != seed) m.path = 0;
}

ray_answer cast_seed_ray(const ray_start& start, const float* center, const float* dir,
                         ray_caster* caster)
{
    constexpr ray_answer k_useless = {false, false};
    seed_ray ray = {start.seed, {}, {}, {}, {}, static_cast<double>(merge_tol), 0, true, {}};
    vec_copy(center, ray.center);
    vec_copy(center, ray.at);
    vec_copy(dir, ray.dir);
    const node_h root = caster->ctx->root;
    const bool starts_in_leaf = pt_in_box(rec(start.leaf).box, center);
    if (!set_out(rec(root).box, &ray)) return k_useless;
    cast_result cast = cast_not_done;
    if (has_index(caster)) {
        seed_ray trial = ray;
        leaf_cell leaf = {rec(start.leaf).box, start.path};
        cast = starts_in_leaf || find_leaf_cell(root, center, &caster->leaves, &leaf)
                   ? cast_by_index(leaf, &trial, caster)
                   : cast_useless;
        if (cast != cast_not_done) ray = trial;
    }
    if (cast == cast_not_done)
        cast = cast_through_leaves(starts_in_leaf ? start.leaf : cell_find_leaf(root, center), &ray,
                                   caster);
    if (cast == cast_useless) return k_useless;
    return {ray.clean, ray.hits % 2 == 1};
}

} // namespace velmora
