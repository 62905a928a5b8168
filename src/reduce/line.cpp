#include "reduce/line.h"

#include "mesh/checked.h"
#include "mesh/measure.h"
#include "mesh/vec.h"

#include <algorithm>
#include <cmath>
#include <initializer_list>

namespace velmora {

namespace {

constexpr double k_collinear_cos = 0.9999998807907104; ///< cosine, exclusive, either direction

// Unit vectors whose product is beyond that, as rounded, differ in no component by so much, but for
// their sign.
constexpr float k_size_share = 2e-3f;
constexpr std::uint32_t k_plain_search = bound_or(48u, 2u); ///< edges that are looked at one by one

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

// A leaving edge by the size of one component of its direction.
struct sized_edge {
    float size;
    std::uint32_t i; // in fan_lines::leaving
};

// What the search for a line knows of the fan: where a line can go on, which is at sharp edges that
// leave the vertex in their triangle, and where the line lies that was found. So that of a large
// fan, each sharp edge is compared with nothing but directions.
struct fan_lines {
    sharp_edge leaving[k_most_valence]; // in the order of the fan
    std::uint32_t leaving_count;
    bool is_large; // then the edges with a direction are sorted by size, and the loose ones have
                   // none
    std::uint32_t axis;
    sized_edge sized[k_most_valence];
    std::uint32_t sized_count;
    std::uint32_t loose[k_most_valence];
    std::uint32_t loose_count;
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

// The axis along which the directions differ most in size.
std::uint32_t widest_axis()
{
    std::uint32_t widest = 0;
    float most = -1.0f;
    for (std::uint32_t axis = 0; axis < 3; ++axis) {
        float low = 1.0f;
        float high = 0.0f;
        for (std::uint32_t i = 0; i < lines.leaving_count; ++i) {
            const float size = std::fabs(lines.leaving[i].dir[axis]);
            low = size < low ? size : low;
            high = size > high ? size : high;
        }
        if (!(high - low > most)) continue;
        most = high - low;
        widest = axis;
    }
    return widest;
}

// A direction with a NaN goes on in none.
void sort_leaving()
{
    lines.is_large = lines.leaving_count > k_plain_search;
    if (!lines.is_large) return;
    lines.axis = widest_axis();
    lines.sized_count = lines.loose_count = 0;
    for (std::uint32_t i = 0; i < lines.leaving_count; ++i) {
        const sharp_edge& edge = lines.leaving[i];
        const float size = std::fabs(edge.dir[lines.axis]);
        if (!edge.has_dir) lines.loose[lines.loose_count++] = i;
        if (edge.has_dir && !std::isnan(size)) lines.sized[lines.sized_count++] = {size, i};
    }
    std::sort(lines.sized, lines.sized + lines.sized_count,
              [](const sized_edge& a, const sized_edge& b) { return a.size < b.size; });
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
    sort_leaving();
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

bool goes_on_in(const sharp_edge& edge, const sharp_edge& other)
{
    return other.place > edge.place && edges_collinear(edge, other) &&
           !is_next_to(other.at.tr, edge.at.tr);
}

// The first leaving edge in which this one goes on, or leaving_count. Of two that are collinear the
// components are alike in size, to within k_size_share: in a large fan only such are compared.
std::uint32_t first_partner(const sharp_edge& edge)
{
    std::uint32_t first = lines.leaving_count;
    const auto look_at = [&](std::uint32_t i) {
        if (i < first && goes_on_in(edge, lines.leaving[i])) first = i;
    };
    if (!lines.is_large || !edge.has_dir) {
        for (std::uint32_t i = 0; i < first; ++i)
            look_at(i);
        return first;
    }
    for (std::uint32_t i = 0; i < lines.loose_count; ++i)
        look_at(lines.loose[i]);
    const float size = std::fabs(edge.dir[lines.axis]);
    const sized_edge* at = lines.sized;
    const sized_edge* const end = at + lines.sized_count;
    at = std::lower_bound(at, end, size - k_size_share,
                          [](const sized_edge& e, float least) { return e.size < least; });
    for (; at != end && at->size <= size + k_size_share; ++at)
        look_at(at->i);
    return first;
}

// Looks for the continuation of the sharp edge among the fan triangles behind its own, leaving out
// those next to it. Only the edge that leaves the vertex in each of them is looked at.
const sharp_edge* line_partner(const vtx_site& site, const sharp_edge& edge)
{
    const std::uint32_t i = first_partner(edge);
    if (i == lines.leaving_count) return nullptr;
    const sharp_edge& other = lines.leaving[i];
    return meets_line(site, edge.at.tr, edge.place + 1, other.place) ? nullptr : &other;
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
