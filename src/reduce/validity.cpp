#include "reduce/validity.h"

#include "mesh/measure.h"
#include "mesh/vec.h"

namespace velmora {

namespace {

constexpr double k_least_edge = k_unit_eps; ///< a triangle whose longest edge is no longer is bad

// A triangle's shape before or after the move.
struct shape {
    bool bad;       // breaks the limit
    double measure; // ratio or cosine, by the test
};

void put_at(vtx_h v, const float* pos)
{
    vec_copy(pos, rec(v).pos);
}

shape height_shape(const tr_rec& tr, double least_ratio)
{
    if (tr_has_equal_corners(tr)) return {false, 0.0};
    const height_result h = tr_height(tr);
    if (!h.ok) return {true, 0.0};
    const double longest = static_cast<double>(static_cast<float>(edge_len(tr, next3(h.corner))));
    if (!(longest > k_least_edge)) return {true, 0.0};
    const double ratio = h.height / longest;
    return {ratio < least_ratio, ratio};
}

shape angle_shape(const tr_rec& tr, double limit)
{
    if (tr_has_equal_corners(tr)) return {false, 0.0};
    const max_cos_result sharpest = tr_max_cos(tr, limit);
    return {sharpest.above, sharpest.cos};
}

double edge_len_f(const tr_rec& tr, int e)
{
    return static_cast<double>(static_cast<float>(edge_len(tr, e)));
}

// The normals that the fan had in a trial that has passed. The move itself puts the same corners
// at the same places, so it needs no others.
struct trial_nrms {
    vtx_h v; // none: there is nothing to be had here
    vtx_h target;
    float nrm[k_most_valence][3]; // by place in the fan
};

// Too large for the stack; one vertex is tried at a time.
trial_nrms tried;

// Recomputes the normal of `tr` into `out` and leaves the old one; the degenerate mark stays as
// computed.
bool nrm_keeps_side(tr_rec* tr, float* out)
{
    float kept[3];
    vec_copy(tr->nrm, kept);
    tr_recompute_nrm(tr, true, nullptr);
    vec_copy(tr->nrm, out);
    vec_copy(kept, tr->nrm);
    return (tr->flags & tr_no_nrm) || !(vec_dot(out, kept) < 0.0);
}

// A collapsed triangle that has the vertex twice is not moved as the trial has it.
bool has_twice(const tr_rec& tr, vtx_h v)
{
    return (tr.vtx[0] == v) + (tr.vtx[1] == v) + (tr.vtx[2] == v) > 1;
}

bool moves_as_tried(const vtx_site& site)
{
    if (site.fan.count > k_most_valence) return false;
    for (const tr_h t : site.fan)
        if (has_twice(rec(t), site.v)) return false;
    return true;
}

bool run_tests(const vtx_site& site, const float* before, const float* after, unsigned tests)
{
    if ((tests & test_edges) && !vtx_edges_ok(site)) return false;
    if ((tests & test_normals) && !vtx_normals_ok(site)) return false;
    if ((tests & test_heights) && !vtx_height_ok(site, before, after)) return false;
    return !(tests & test_angles) || vtx_angle_ok(site, before, after);
}

void vtx_replace(const vtx_site& site, vtx_h target)
{
    for (const tr_h t : site.fan) {
        tr_rec& tr = rec(t);
        const int i = tr_vtx_index(site.v, tr);
        if (i < 0) continue;
        tr.vtx[i] = vtx_ref(target);
        vtx_release(site.v);
    }
    site.info->vtx = vtx_ref(target);
    vtx_release(site.v);
}

} // namespace

vtx_site site_of(vtx_table* table, const reduce_params& params, std::uint32_t place)
{
    vtx_info* info = &table->infos[place];
    return {&params, table, place, info, info->vtx, fan_of(*table, *info)};
}

bool trial_passes(const vtx_site& site, vtx_h target, unsigned tests)
{
    float before[3];
    float after[3];
    vec_copy(rec(site.v).pos, before);
    vec_copy(rec(target).pos, after);
    put_at(site.v, after);
    const bool passes = run_tests(site, before, after, tests);
    put_at(site.v, before);
    const bool keep = passes && (tests & test_normals) && moves_as_tried(site);
    tried.v = keep ? site.v : vtx_h{};
    tried.target = target;
    return passes;
}

bool vtx_normals_ok(const vtx_site& site)
{
    float unkept[3] = {};
    for (std::uint32_t k = 0; k < site.fan.count; ++k) {
        float* out = k < k_most_valence ? tried.nrm[k] : unkept;
        if (!nrm_keeps_side(&rec(site.fan.first[k]), out)) return false;
    }
    return true;
}

bool vtx_edges_ok(const vtx_site& site)
{
    const double longest = site.params->max_edge;
    if (longest == 0.0) return true;
    for (const tr_h t : site.fan) {
        const tr_rec& tr = rec(t);
        const int i = tr_vtx_index(site.v, tr);
        if (i < 0) continue;
        if (edge_len_f(tr, i) > longest || edge_len_f(tr, prev3(i)) > longest) return false;
    }
    return true;
}

bool vtx_height_ok(const vtx_site& site, const float* before, const float* after)
{
    const double least = site.params->height_ratio;
    if (least == 0.0) return true;
    bool ok = true;
    for (std::uint32_t k = 0; k < site.fan.count && ok; ++k) {
        const tr_rec& tr = rec(site.fan.first[k]);
        put_at(site.v, after);
        const shape then = height_shape(tr, least);
        if (!then.bad) continue;
        put_at(site.v, before);
        const shape now = height_shape(tr, least);
        ok = now.bad && !(now.measure > then.measure);
    }
    put_at(site.v, after);
    return ok;
}

bool vtx_angle_ok(const vtx_site& site, const float* before, const float* after)
{
    const double limit = site.params->min_angle_cos;
    if (limit == k_no_angle_limit) return true;
    bool ok = true;
    for (std::uint32_t k = 0; k < site.fan.count && ok; ++k) {
        const tr_rec& tr = rec(site.fan.first[k]);
        put_at(site.v, after);
        const shape then = angle_shape(tr, limit);
        if (!then.bad) continue;
        put_at(site.v, before);
        const shape now = angle_shape(tr, limit);
        ok = now.bad && !(then.measure > now.measure);
    }
    put_at(site.v, after);
    return ok;
}

bool vtx_fan_angles_ok(const vtx_site& site)
{
    const double limit = site.params->min_angle_cos;
    if (limit == k_no_angle_limit) return true;
    for (const tr_h t : site.fan)
        if (angle_shape(rec(t), limit).bad) return false;
    return true;
}

// The bound is a float and the lengths are doubles, so of two edges that are equal but for rounding
// either may win; narrowing is part of the result.
static void take_if_shorter(const tr_rec& tr, int e, int far_end, float* bound, vtx_h* nearest)
{
    const double len = edge_len(tr, e);
    if (!(len < static_cast<double>(*bound))) return;
    *bound = static_cast<float>(len);
    *nearest = tr.vtx[far_end];
}

vtx_h vtx_shortest_nb(const vtx_site& site)
{
    vtx_h nearest = {};
    float bound = static_cast<float>(site.params->max_edge);
    for (const tr_h t : site.fan) {
        const tr_rec& tr = rec(t);
        const int i = tr_vtx_index(site.v, tr);
        if (i < 0) continue;
        take_if_shorter(tr, i, next3(i), &bound, &nearest);
        take_if_shorter(tr, prev3(i), prev3(i), &bound, &nearest);
    }
    return nearest;
}

void vtx_commit(const vtx_site& site, vtx_h target)
{
    if (site.params->mode != mode_aspect) vec_copy(rec(site.v).pos, site.info->moved);
    const bool known = tried.v == site.v && tried.target == target;
    tried.v = {};
    vtx_replace(site, target);
    for (std::uint32_t k = 0; k < site.fan.count; ++k) {
        tr_rec* const tr = &rec(site.fan.first[k]);
        if (known) {
            vec_copy(tried.nrm[k], tr->nrm);
        } else {
            tr_recompute_nrm(tr, true, nullptr);
        }
    }
}

void lock_fan(const vtx_site& site)
{
    for (const tr_h t : site.fan) {
        for (const vtx_h v : rec(t).vtx) {
            const std::uint32_t index = rec(v).tbl_index;
            if (index != 0) site.table->types[index - 1] = vtx_locked;
        }
    }
    site.table->types[site.place] = vtx_locked;
}

void mark_removed(const vtx_site& site)
{
    lock_fan(site);
    site.table->types[site.place] = vtx_removed;
}

} // namespace velmora
