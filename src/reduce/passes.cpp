#include "reduce/passes.h"

#include "mesh/measure.h"
#include "mesh/vec.h"
#include "reduce/aspect.h"
#include "reduce/classify.h"
#include "reduce/line.h"
#include "reduce/validity.h"

#include <initializer_list>

namespace velmora {

namespace {

constexpr std::uint32_t k_least_valence = 2;
constexpr double k_least_dot = 1.1754943508222875e-38; ///< smallest normal float

bool in_valence_range(const vtx_site& site)
{
    return site.fan.count >= k_least_valence && site.fan.count <= k_most_valence;
}

// Modes 1 to 3: the type is read when the walk arrives, so an open vertex that an earlier one has
// locked no longer counts as open and locks nothing itself.
void lock_boundary(const vtx_site& site)
{
    vtx_type& type = site.table->types[site.place];
    if (type != vtx_open) return;
    if (site.params->mode == mode_aspect) {
        type = vtx_locked;
    } else {
        lock_fan(site);
    }
}

void prepare_types(vtx_table* table, const reduce_params& params)
{
    for (std::uint32_t i = 0; i < table->count; ++i) {
        const vtx_site site = site_of(table, params, i);
        if (site.fan.count == 0) continue;
        lock_boundary(site);
        if (params.grid > 0.0 && vtx_on_grid_line(params.grid, *site.info))
            table->types[i] = vtx_on_grid;
    }
}

// Moves the vertex onto `target`, if there is one and the tests allow it.
bool remove_onto(const vtx_site& site, vtx_h target, unsigned tests)
{
    if (!target || !trial_passes(site, target, tests)) return false;
    vtx_commit(site, target);
    mark_removed(site);
    return true;
}

bool remove_degen(const vtx_site& site)
{
    for (const tr_h t : site.fan)
        if (!(rec(t).flags & tr_no_nrm)) return false;
    return remove_onto(site, vtx_shortest_nb(site), test_normals);
}

// The far end of edge `e` lies too high over the tangent plane.
bool edge_too_high(const tr_rec& tr, int e, const float* nrm, double limit)
{
    float edge[3];
    edge_vec(tr, e, edge);
    const double len = vec_len(edge);
    if (!vec_unit_checked(edge)) return false;
    const float h = static_cast<float>(std::fabs(vec_dot(nrm, edge)) * len);
    return static_cast<double>(h) > limit;
}

// Neighbours in the fan share an edge, which is the same height from both sides: it is looked at
// once.
bool plane_dist_ok(const vtx_site& site)
{
    vtx_h seen[2] = {};
    for (const tr_h t : site.fan) {
        const tr_rec& tr = rec(t);
        const int i = tr_vtx_index(site.v, tr);
        if (i < 0) continue;
        const vtx_h ends[2] = {tr.vtx[next3(i)], tr.vtx[prev3(i)]};
        for (const int k : {0, 1}) {
            if (ends[k] == seen[0] || ends[k] == seen[1]) continue;
            const int e = k == 0 ? i : prev3(i);
            if (edge_too_high(tr, e, site.info->nrm, site.params->dist_tol)) return false;
        }
        seen[0] = ends[0];
        seen[1] = ends[1];
    }
    return true;
}

vtx_type type_of(const vtx_table& table, vtx_h v)
{
    const std::uint32_t index = rec(v).tbl_index;
    return index ? table.types[index - 1] : vtx_unset;
}

// Dot product of the normals on both sides of edge `e`; next to nothing without a neighbour.
double outer_dot(const tr_rec& tr, int e)
{
    const tr_h n = live_nbr(tr, e);
    return n ? vec_dot(tr.nrm, rec(n).nrm) : k_least_dot;
}

// Towards the side where the fan lies flattest on the mesh outside: the nearer end of the fan
// triangle's outer edge that is not locked.
vtx_h flattest_target(const vtx_site& site)
{
    vtx_h target = {};
    double best_dot = k_least_dot;
    for (const tr_h t : site.fan) {
        const tr_rec& tr = rec(t);
        const int i = tr_vtx_index(site.v, tr);
        if (i < 0) continue;
        const double dot = outer_dot(tr, next3(i));
        if (!(dot > best_dot)) continue;
        best_dot = dot;
        double best_len = k_far;
        const double ahead = edge_len(tr, i);
        if (ahead < best_len && type_of(*site.table, tr.vtx[next3(i)]) != vtx_locked) {
            target = tr.vtx[next3(i)];
            best_len = ahead;
        }
        const double behind = edge_len(tr, prev3(i));
        if (behind < best_len && type_of(*site.table, tr.vtx[prev3(i)]) != vtx_locked)
            target = tr.vtx[prev3(i)];
    }
    return target;
}

bool remove_plane(const vtx_site& site)
{
    return plane_dist_ok(site) && remove_onto(site, flattest_target(site), test_shape);
}

bool remove_plane_short(const vtx_site& site)
{
    return plane_dist_ok(site) && remove_onto(site, vtx_shortest_nb(site), test_edges | test_shape);
}

// What the search for the short edge mode's target keeps.
struct short_edge_search {
    const vtx_site& site;
    float ahead[3]; // of two ends of an edge, only the one that has the other ahead may go
    double bound;
    vtx_h target;
};

void look_at_end(short_edge_search* s, const tr_rec& tr, int e, int end)
{
    const reduce_params& params = *s->site.params;
    const vtx_h far_end = tr.vtx[end];
    const double len = static_cast<double>(static_cast<float>(edge_len(tr, e)));
    if (params.grid > 0.0 && type_of(*s->site.table, far_end) != vtx_on_grid) return;
    float way[3];
    vec_diff(rec(s->site.v).pos, rec(far_end).pos, way);
    if (!(vec_dot(s->ahead, way) > 0.0 && len < s->bound && params.min_edge >= len)) return;
    s->bound = len;
    s->target = far_end;
}

// None on a horizontal face: there no direction is ahead.
vtx_h short_edge_target(const vtx_site& site)
{
    const float up[3] = {0.0f, 0.0f, 1.0f};
    const double bound = static_cast<double>(static_cast<float>(site.params->min_edge));
    short_edge_search s = {site, {}, bound, {}};
    vec_cross(up, site.info->nrm, s.ahead);
    if (!vec_unit_checked(s.ahead)) return {};
    for (const tr_h t : site.fan) {
        const tr_rec& tr = rec(t);
        const int i = tr_vtx_index(site.v, tr);
        if (i < 0) continue;
        look_at_end(&s, tr, i, next3(i));
        look_at_end(&s, tr, prev3(i), prev3(i));
    }
    return s.target;
}

bool remove_short_edge(const vtx_site& site)
{
    return remove_onto(site, short_edge_target(site), test_shape);
}

bool is_untouched(const vtx_site& site)
{
    const vtx_type type = site.table->types[site.place];
    return type != vtx_removed && type != vtx_locked && type != vtx_on_grid;
}

bool is_on_line(const vtx_site& site)
{
    return is_untouched(site) && site.info->fan_dot_min <= site.params->angle_tol;
}

bool is_on_plane(const vtx_site& site)
{
    return is_untouched(site) && site.table->types[site.place] != vtx_no_normal &&
           site.info->fan_dot_min > site.params->angle_tol;
}

bool is_short_edge_vtx(const vtx_site& site)
{
    const vtx_type type = site.table->types[site.place];
    if (type == vtx_removed || type == vtx_locked) return false;
    return type != vtx_on_grid || !(site.params->grid > 0.0);
}

// One walk in table order; how many vertices went.
template <class may_fn, class remove_fn>
std::uint32_t run_pass(vtx_table* table, const reduce_params& params, const may_fn& may,
                       const remove_fn& remove)
{
    std::uint32_t went = 0;
    for (std::uint32_t i = 0; i < table->count; ++i) {
        const vtx_site site = site_of(table, params, i);
        if (in_valence_range(site) && may(site) && remove(site)) ++went;
    }
    return went;
}

// Mode 4 does not look at the grid.
void pass_aspect(vtx_table* table, const reduce_params& params)
{
    for (std::uint32_t k = 0; k < table->sorted_count; ++k) {
        const vtx_site site = site_of(table, params, table->sorted[k]);
        const vtx_type type = table->types[site.place];
        if (in_valence_range(site) && type != vtx_removed && type != vtx_locked)
            remove_aspect(site);
    }
}

} // namespace

void reduce_passes(vtx_table* table, const reduce_params& params, pass_counts* counts)
{
    *counts = {};
    prepare_types(table, params);
    counts->degen = run_pass(table, params, is_untouched, remove_degen);
    if (params.mode == mode_dist && params.dist_tol > 0.0) {
        counts->line = run_pass(table, params, is_on_line, remove_line);
        counts->plane = run_pass(table, params, is_on_plane, remove_plane);
    } else if (params.mode == mode_short && params.min_edge > 0.0) {
        counts->short_edge = run_pass(table, params, is_short_edge_vtx, remove_short_edge);
    } else if (params.mode == mode_max && params.max_edge > 0.0) {
        counts->line = run_pass(table, params, is_on_line, remove_line);
        counts->plane = run_pass(table, params, is_on_plane, remove_plane_short);
    } else if (params.mode == mode_aspect && params.dist_tol > 0.0) {
        pass_aspect(table, params);
    }
}

} // namespace velmora
