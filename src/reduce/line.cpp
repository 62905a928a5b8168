#include "reduce/line.h"

#include "mesh/measure.h"
#include "mesh/vec.h"

#include <initializer_list>

namespace velmora {

namespace {

constexpr double k_collinear_cos = 0.9999998807907104; ///< cosine, exclusive, either direction

// An edge as a side of one of its triangles.
struct tr_edge {
    tr_h tr;
    int e;
};

// The two sharp edges that run straight through the vertex.
struct feature_line {
    bool found;
    tr_edge pair[2];
};

bool same_edge(const tr_edge& a, const tr_edge& b)
{
    const tr_rec& ta = rec(a.tr);
    const tr_rec& tb = rec(b.tr);
    const vtx_h a0 = ta.vtx[a.e];
    const vtx_h a1 = ta.vtx[next3(a.e)];
    const vtx_h b0 = tb.vtx[b.e];
    const vtx_h b1 = tb.vtx[next3(b.e)];
    return (a0 == b0 && a1 == b1) || (a0 == b1 && a1 == b0);
}

bool in_pair(const tr_edge& edge, const feature_line& line)
{
    return line.found && (same_edge(edge, line.pair[0]) || same_edge(edge, line.pair[1]));
}

bool edges_collinear(const tr_edge& a, const tr_edge& b)
{
    float u[3];
    float v[3];
    edge_vec(rec(a.tr), a.e, u);
    edge_vec(rec(b.tr), b.e, v);
    if (!vec_unit_checked(u) || !vec_unit_checked(v)) return true;
    const double d = vec_dot(u, v);
    return d < -k_collinear_cos || d > k_collinear_cos;
}

bool edge_sharp(double limit, const tr_edge& edge)
{
    const tr_rec& tr = rec(edge.tr);
    const tr_h n = live_nbr(tr, edge.e);
    if (!n) return false;
    const tr_rec& nbr = rec(n);
    if ((tr.flags | nbr.flags) & tr_no_nrm) return false;
    return vec_dot(tr.nrm, nbr.nrm) <= limit;
}

bool shares_edge(const tr_rec& a, const tr_rec& b)
{
    for (int i = 0; i < 3; ++i)
        if (tr_edge_index(a.vtx[i], a.vtx[next3(i)], b) >= 0) return true;
    return false;
}

// Looks for the continuation of sharp edge `edge` among the fan triangles from place `from` on,
// leaving out those next to it. Only the edge that leaves the vertex in each of them is looked at.
bool line_partner(const vtx_site& site, const tr_edge& edge, std::uint32_t from,
                  const feature_line& line, tr_edge* partner)
{
    const double limit = site.params->angle_tol;
    for (std::uint32_t k = from; k < site.fan.count; ++k) {
        const tr_h u = site.fan.first[k];
        const tr_rec& tr = rec(u);
        if (u == edge.tr || (tr.flags & tr_no_nrm) || shares_edge(rec(edge.tr), tr)) continue;
        const int i = tr_vtx_index(site.v, tr);
        if (i < 0) continue;
        *partner = {u, i};
        if (in_pair(*partner, line)) return false;
        if (edge_sharp(limit, *partner) && edges_collinear(edge, *partner)) return true;
    }
    return false;
}

// Both edges of the fan triangle at place `k` through the vertex. Returns false when one of them
// starts a second line: the vertex is a corner then.
bool take_in_tr(const vtx_site& site, std::uint32_t k, feature_line* line)
{
    const tr_h t = site.fan.first[k];
    const tr_rec& tr = rec(t);
    const int i = tr_vtx_index(site.v, tr);
    if (i < 0 || (tr.flags & tr_no_nrm)) return true;
    for (const int e : {i, prev3(i)}) {
        const tr_edge edge = {t, e};
        tr_edge partner;
        if (in_pair(edge, *line) || !edge_sharp(site.params->angle_tol, edge)) continue;
        if (!line_partner(site, edge, k + 1, *line, &partner)) continue;
        if (line->found) return false;
        *line = {true, {edge, partner}};
    }
    return true;
}

bool find_line(const vtx_site& site, feature_line* line)
{
    *line = {};
    for (std::uint32_t k = 0; k < site.fan.count; ++k)
        if (!take_in_tr(site, k, line)) return false;
    return line->found;
}

// Along the shorter of the two edges, the first at equal lengths.
vtx_h line_target(const vtx_site& site, const tr_edge& first, const tr_edge& second)
{
    const bool take_second = edge_len(rec(second.tr), second.e) < edge_len(rec(first.tr), first.e);
    const tr_edge& edge = take_second ? second : first;
    const tr_rec& tr = rec(edge.tr);
    return tr.vtx[edge.e] == site.v ? tr.vtx[next3(edge.e)] : tr.vtx[edge.e];
}

bool collapse_line(const vtx_site& site, const tr_edge& first, const tr_edge& second)
{
    const vtx_h target = line_target(site, first, second);
    if (site.params->max_edge > 0.0 && vtx_shortest_nb(site) != target) return false;
    if (!trial_passes(site, target, test_edges | test_shape)) return false;
    vtx_commit(site, target);
    return true;
}

} // namespace

bool remove_line(const vtx_site& site)
{
    feature_line line;
    const bool straight = find_line(site, &line);
    if (straight && (collapse_line(site, line.pair[0], line.pair[1]) ||
                     collapse_line(site, line.pair[1], line.pair[0]))) {
        mark_removed(site);
        return true;
    }
    site.table->types[site.place] = vtx_locked;
    return false;
}

} // namespace velmora
