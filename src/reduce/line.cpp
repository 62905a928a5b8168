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

// A sharp edge and its direction.
struct sharp_edge {
    tr_edge at;
    std::uint32_t place; // of its triangle in the fan
    bool has_dir;        // false: it has no length to speak of, and goes on in any other
    float dir[3];        // unit
};

sharp_edge with_dir(const tr_edge& at, std::uint32_t place)
{
    sharp_edge edge = {at, place, false, {}};
    edge_vec(rec(at.tr), at.e, edge.dir);
    edge.has_dir = vec_unit_checked(edge.dir);
    return edge;
}

bool edges_collinear(const sharp_edge& a, const sharp_edge& b)
{
    if (!a.has_dir || !b.has_dir) return true;
    const double d = vec_dot(a.dir, b.dir);
    return d < -k_collinear_cos || d > k_collinear_cos;
}

// What the search for a line knows of the fan: where a line can go on, which is at sharp edges that
// leave the vertex in their triangle, and where the line lies that was found. So that of a large
// fan, each sharp edge is compared with nothing but directions.
struct fan_lines {
    sharp_edge leaving[k_most_valence]; // in the order of the fan
    std::uint32_t leaving_count;
    std::uint32_t on_line[k_most_valence]; // places whose leaving edge is one of the line's
    std::uint32_t on_line_count;
    feature_line line;
};

// Too large for the stack; one vertex is looked at at a time.
fan_lines lines;

// The edge of the fan triangle at place `k` that leaves the vertex; false where none can be the
// continuation of another.
bool leaving_edge(const vtx_site& site, std::uint32_t k, tr_edge* edge)
{
    const tr_h t = site.fan.first[k];
    const tr_rec& tr = rec(t);
    *edge = {t, tr_vtx_index(site.v, tr)};
    return edge->e >= 0 && !(tr.flags & tr_no_nrm);
}

void collect_leaving(const vtx_site& site)
{
    lines.leaving_count = 0;
    lines.on_line_count = 0;
    lines.line = {};
    for (std::uint32_t k = 0; k < site.fan.count; ++k) {
        tr_edge edge;
        if (leaving_edge(site, k, &edge) && edge_sharp(site.params->angle_tol, edge))
            lines.leaving[lines.leaving_count++] = with_dir(edge, k);
    }
}

void keep_line(const vtx_site& site, const tr_edge& first, const tr_edge& second)
{
    lines.line = {true, {first, second}};
    for (std::uint32_t k = 0; k < site.fan.count; ++k) {
        tr_edge edge;
        if (leaving_edge(site, k, &edge) && in_pair(edge, lines.line))
            lines.on_line[lines.on_line_count++] = k;
    }
}

// Triangles that can't hold the continuation of an edge of `t`: itself, and those next to it.
bool is_next_to(tr_h u, tr_h t)
{
    return u == t || shares_edge(rec(t), rec(u));
}

// An edge of the line that was found lies between the places `from` and `to`, both included, in a
// triangle where the continuation of an edge of `t` could be: the search ends there.
bool meets_line(const vtx_site& site, tr_h t, std::uint32_t from, std::uint32_t to)
{
    for (std::uint32_t i = 0; i < lines.on_line_count; ++i) {
        const std::uint32_t k = lines.on_line[i];
        if (k >= from && k <= to && !is_next_to(site.fan.first[k], t)) return true;
    }
    return false;
}

// Looks for the continuation of the sharp edge among the fan triangles behind its own, leaving out
// those next to it. Only the edge that leaves the vertex in each of them is looked at.
const sharp_edge* line_partner(const vtx_site& site, const sharp_edge& edge)
{
    for (std::uint32_t i = 0; i < lines.leaving_count; ++i) {
        const sharp_edge& other = lines.leaving[i];
        if (other.place <= edge.place || !edges_collinear(edge, other)) continue;
        if (is_next_to(other.at.tr, edge.at.tr)) continue;
        return meets_line(site, edge.at.tr, edge.place + 1, other.place) ? nullptr : &other;
    }
    return nullptr;
}

// Both edges of the fan triangle at place `k` through the vertex. Returns false when one of them
// starts a second line: the vertex is a corner then.
bool take_in_tr(const vtx_site& site, std::uint32_t k)
{
    tr_edge leaving;
    if (!leaving_edge(site, k, &leaving)) return true;
    for (const int e : {leaving.e, prev3(leaving.e)}) {
        const tr_edge edge = {leaving.tr, e};
        if (in_pair(edge, lines.line) || !edge_sharp(site.params->angle_tol, edge)) continue;
        const sharp_edge* partner = line_partner(site, with_dir(edge, k));
        if (!partner) continue;
        if (lines.line.found) return false;
        keep_line(site, edge, partner->at);
    }
    return true;
}

bool find_line(const vtx_site& site, feature_line* line)
{
    collect_leaving(site);
    for (std::uint32_t k = 0; k < site.fan.count; ++k)
        if (!take_in_tr(site, k)) return false;
    *line = lines.line;
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
