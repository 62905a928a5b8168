#include "reduce/normals.h"

#include "mesh/log.h"
#include "mesh/plane.h"
#include "mesh/vec.h"
#include "plg/plg.h"
#include "reduce/last_nrms.h"

#include <bit>

namespace velmora {

namespace {

constexpr double k_eps = k_unit_eps;
constexpr double k_good_dot = 0.7071; ///< cosine: a fan seen at 45 degrees or better is left alone

bool is_degenerate(const tr_rec& tr)
{
    return (tr.flags & tr_no_nrm) != 0;
}

constexpr std::uint32_t k_most_trs = 65537; ///< of a fan

// Of the fan at hand: no triangle further on has the same normal.
bool is_last[k_most_trs];

// Each distinct normal counts once, at its last place in the fan: a flat region of many triangles
// weighs no more than one triangle.
bool vtx_nrm_sum(const vtx_fan& fan, float* nrm)
{
    vec_set(nrm, 0.0f, 0.0f, 0.0f);
    mark_last_nrms(fan, is_last);
    for (std::uint32_t k = 0; k < fan.count; ++k) {
        const tr_rec& tr = rec(fan.first[k]);
        if (is_degenerate(tr) || !is_last[k]) continue;
        vec_add(nrm, tr.nrm, nrm);
    }
    if (vec_unit_checked(nrm)) return true;
    vec_set(nrm, 0.0f, 0.0f, 0.0f);
    return false;
}

// What a run along a polygon remembers.
struct polygon_run {
    float sum[3];  // of all normals met so far
    bool has_nrms; // some normal went into it
};

// Adds the fan's normals to the vertex and to the run; a vertex without any borrows the run's.
// Returns whether the vertex was left with a direction (or is not an open one at all).
bool open_vtx_nrm(vtx_table* table, std::uint32_t place, polygon_run* run)
{
    vtx_info& info = table->infos[place];
    vtx_type& type = table->types[place];
    if (type != vtx_open) {
        if (type != vtx_closed) type = vtx_no_normal;
        return true;
    }
    bool found = false;
    for (const tr_h t : fan_of(*table, info)) {
        const tr_rec& tr = rec(t);
        if (is_degenerate(tr)) continue;
        vec_add(info.nrm, tr.nrm, info.nrm);
        vec_add(run->sum, tr.nrm, run->sum);
        run->has_nrms = found = true;
    }
    if (!found) vec_set(info.nrm, 0.0f, 0.0f, 0.0f);
    if (!found && run->has_nrms) vec_copy(run->sum, info.nrm);
    if (vec_unit_checked(info.nrm)) return found || run->has_nrms;
    type = vtx_no_normal;
    vec_set(info.nrm, 0.0f, 0.0f, 0.0f);
    return false;
}

// The table place of a polygon's point, or -1 for a point without a vertex or a record.
std::int64_t point_place(const plg_rec& plg, std::uint32_t i)
{
    const vtx_h v = plg_point_vtx(&plg, i);
    return v ? std::int64_t{rec(v).tbl_index} - 1 : -1;
}

void visit_point(vtx_table* table, const plg_rec& plg, std::uint32_t i, polygon_run* run)
{
    const std::int64_t place = point_place(plg, i);
    if (place >= 0) open_vtx_nrm(table, static_cast<std::uint32_t>(place), run);
}

// The first point whose vertex gets a direction, or that has no vertex; one that fails lends its
// normals to nobody. The search stays on the last point: a second try there finds the vertex no
// longer open.
std::uint32_t find_first_nrm(vtx_table* table, const plg_rec& plg, polygon_run* run)
{
    for (std::uint32_t i = 0;; i = i + 1 < plg.points.count ? i + 1 : i) {
        run->has_nrms = false;
        const std::int64_t place = point_place(plg, i);
        if (place < 0 || open_vtx_nrm(table, static_cast<std::uint32_t>(place), run)) return i;
    }
}

void plg_vtx_nrm(vtx_table* table, const plg_rec& plg)
{
    polygon_run run = {};
    const std::uint32_t first = find_first_nrm(table, plg, &run);
    for (std::uint32_t i = first + 1; i + 1 < plg.points.count; ++i)
        visit_point(table, plg, i, &run);
    for (std::uint32_t i = first; i-- > 0;)
        visit_point(table, plg, i, &run);
}

// How a fan looks from a normal: the least and the largest dot product, the first of equals.
struct fan_look {
    double min;
    double max;
    std::uint32_t min_place;
};

// A dot within eps of zero counts as exactly zero. A fan of degenerate triangles only looks
// perfect.
fan_look fan_dots(const vtx_fan& fan, const float* nrm)
{
    fan_look look = {1.0, -1.0, 0};
    for (std::uint32_t k = 0; k < fan.count; ++k) {
        const tr_rec& tr = rec(fan.first[k]);
        if (is_degenerate(tr)) continue;
        double d = vec_dot(tr.nrm, nrm);
        if (d >= -k_eps && d <= k_eps) d = 0.0;
        if (d < look.min) {
            look.min = d;
            look.min_place = k;
        }
        if (d > look.max) look.max = d;
    }
    return look;
}

// Into the plane of the triangle with normal `tn`, and a hair to its positive side.
void nrm_push_out(float* nrm, const float* tn, double d)
{
    if (!(d <= 0.0)) return;
    vec_along(nrm, tn, -d);
    vec_along(nrm, tn, static_cast<double>(merge_tol));
}

// The way from the tip of the normal along the worst triangle's normal to the nearest plane of a
// triangle that faces it; the normals are taken as points of the mesh, as they stand.
bool nearest_facing_plane(const vtx_fan& fan, const float* nrm, const fan_look& look, double* best)
{
    const float* tn = rec(fan.first[look.min_place]).nrm;
    float tip[3];
    vec_add(nrm, tn, tip);
    *best = k_far;
    bool found = false;
    for (std::uint32_t k = 0; k < fan.count; ++k) {
        const tr_rec& tr = rec(fan.first[k]);
        if (k == look.min_place || is_degenerate(tr) || !(vec_dot(tr.nrm, tn) <= 0.0)) continue;
        const line_hit hit = tr_line_hit(tr, nrm, tip);
        if (!hit.met || !(hit.t > k_eps && hit.t < k_far)) continue;
        const double d = pt_dist(nrm, hit.pt) + look.min;
        if (!(d < *best)) continue;
        *best = d;
        found = true;
    }
    return found;
}

void nrm_trial_step(const vtx_fan& fan, const float* nrm, const fan_look& look, float* trial)
{
    double best;
    double step = k_good_dot;
    if (nearest_facing_plane(fan, nrm, look, &best))
        step = best <= 1.0 ? best * 0.5 - look.min : k_good_dot - look.min;
    vec_along(trial, rec(fan.first[look.min_place]).nrm, step);
}

// One attempt to see the worst triangle better; kept only if it helps. Returns whether it did.
bool improve_good_nrm(const vtx_fan& fan, float* nrm, const fan_look& look)
{
    if (!(look.min < k_good_dot)) return false;
    float trial[3];
    vec_copy(nrm, trial);
    nrm_trial_step(fan, nrm, look, trial);
    vec_unit_checked(trial);
    if (!(fan_dots(fan, trial).min > look.min)) return false;
    vec_copy(trial, nrm);
    return true;
}

void report_large_fan(std::uint32_t count)
{
    log_line("get_nrm4vtx: over 1000 trs with one vertex, %1d, no check\n",
             static_cast<int>(count));
}

// The rounds of get_nrm4vtx on one normal.
struct nrm_search {
    float nrm[3];
    float saved[3]; // to go back to when no round ends well
    bool has_saved; // a correction was made; until then `saved` is the normal as it came in
    bool flipped;
    bool success;
};

// Returns whether the next round may differ: one that leaves the normal as it was would only be
// done again.
bool search_round(const vtx_fan& fan, nrm_search* s)
{
    const fan_look look = fan_dots(fan, s->nrm);
    if (look.min < -k_eps && look.max < -k_eps && !s->flipped) {
        for (float& c : s->nrm)
            c = -c;
        s->flipped = true;
        return true;
    }
    if (look.min < -k_eps) {
        if (!s->has_saved) vec_copy(s->nrm, s->saved);
        s->has_saved = true;
        nrm_push_out(s->nrm, rec(fan.first[look.min_place]).nrm, look.min);
        vec_unit_checked(s->nrm);
        return true;
    }
    if (!(look.min > k_eps)) return false;
    s->success = true;
    return improve_good_nrm(fan, s->nrm, look);
}

// By their bits: a NaN is as good a state as any, and -0 is another than +0.
bool same_bits(const float* a, const float* b)
{
    for (int i = 0; i < 3; ++i)
        if (std::bit_cast<std::uint32_t>(a[i]) != std::bit_cast<std::uint32_t>(b[i])) return false;
    return true;
}

bool same_state(const nrm_search& a, const nrm_search& b)
{
    return same_bits(a.nrm, b.nrm) && same_bits(a.saved, b.saved) && a.has_saved == b.has_saved &&
           a.flipped == b.flipped && a.success == b.success;
}

// A round depends on what the search remembers and on nothing else, so once that is what it was
// before, the rounds repeat themselves, and only what is left over after whole periods has to be
// done. Mostly that is soon: a good normal stays as it is. The state to compare with is renewed
// after 1, 2, 4, 8 ... rounds (Brent 1980).
void search_rounds(const vtx_fan& fan, nrm_search* s)
{
    nrm_search earlier = *s;
    std::uint32_t since = 0; // rounds since `earlier`
    std::uint32_t renew_at = 1;
    std::uint32_t left = fan.count;
    bool repeats = false;
    while (left > 0) {
        if (!search_round(fan, s)) return;
        --left;
        ++since;
        if (repeats) continue;
        if (same_state(*s, earlier)) {
            left %= since;
            repeats = true;
        } else if (since == renew_at) {
            earlier = *s;
            since = 0;
            renew_at *= 2;
        }
    }
}

} // namespace

void vtx_nrm_all(vtx_table* table)
{
    for (std::uint32_t i = 0; i < table->count; ++i) {
        vtx_info& info = table->infos[i];
        if (table->types[i] == vtx_open) continue;
        vec_set(info.nrm, 0.0f, 0.0f, 0.0f);
        if (info.fan_count == 0) continue;
        if (!vtx_nrm_sum(fan_of(*table, info), info.nrm)) table->types[i] = vtx_no_normal;
    }
}

void plg_vtx_nrm_all(const topo_ctx& topo)
{
    for (const plg_cell* cell = topo.plg_list; cell; cell = cell->next)
        if (cell->plg.points.count > 1) plg_vtx_nrm(topo.table, cell->plg);
}

void get_nrm4vtx(const vtx_table& table, vtx_info* info)
{
    const vtx_fan fan = fan_of(table, *info);
    if (fan.count > k_most_fan_dots) {
        report_large_fan(fan.count);
        return;
    }
    nrm_search s = {};
    vec_copy(info->nrm, s.nrm);
    vec_copy(info->nrm, s.saved);
    search_rounds(fan, &s);
    vec_copy(s.success ? s.nrm : s.saved, info->nrm);
}

} // namespace velmora
