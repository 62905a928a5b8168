#include "repair/ray_index.h"

#include "mesh/box.h"
#include "mesh/measure.h"
#include "mesh/memory.h"
#include "mesh/plane.h"
#include "mesh/vec.h"

#include <algorithm>
#include <limits>

namespace velmora {

namespace {

// Why a triangle is met in its box only. The test drops one axis of the point where the ray's line
// meets the plane, and answers by where the point lies to the projected outline: a point off the
// outline's extent by more than the snapping distance, on any side, is outside. So a box that is
// endless along the dropped axis always serves (k_snap).
//
// Along the dropped axis the point is where the plane is, to within what rounding leaves in the
// numerator of the parameter, however flat the ray meets the plane: the residue of the equation is
// some 1.3e-6 of the largest coordinate, and is at most doubled where the plane's unit vector has
// half or more along the axis. Rays are widened by several times that (k_line_share). The plane's
// computed unit vector is off the true one by less than 1e-4 when no corner is too sharp, and no
// product sinks or overflows; so the plane leaves the corners' box by less than a thousandth of the
// longest edge (k_tilt_share), which also covers rounding in the test of the outline.
//
// Which axis is dropped follows from the stored normal, which may be computed anew from another
// corner while the index stands. With such corners all of them agree to 1e-5, so each axis that can
// be the largest of the unit normal has more than half of it. That takes one corner that is clearly
// not flat: without one the normal comes from the foot of the height, which stands on a coarse grid
// where coordinates are large, and may point anywhere.
constexpr double k_most_extent = 1e8;     // largest coordinate that the argument covers
constexpr double k_snap = 4e-6;           // more than any snapping distance, with slopes
constexpr double k_line_share = 1e-5;     // of the largest coordinate
constexpr double k_tilt_share = 1e-3;     // of the longest edge
constexpr double k_least_sine = 0.01;     // at each corner
constexpr double k_least_widest = 0.1;    // sine at the widest corner; the cosine is below 0.996
constexpr double k_least_edge = 1e-9;     // below, squares lose digits
constexpr double k_least_area = 1e-12;    // twice the area; below, its square does
constexpr double k_least_nrm_part = 0.55; // of the stored normal's axis in the true unit normal

constexpr double k_least_extent = 1e-6;
constexpr double k_still_share = 1e-6; // of the largest coordinate: so little is no movement
constexpr float k_still_pace = 1e20f;

constexpr float k_endless = std::numeric_limits<float>::infinity();
constexpr float k_sides_share = 2e-5f; // rounding in the sides, of the square of what is near

struct shape {
    double nrm[3]; // unit, of no matter which side
    double longest;
    bool clear; // corners and sizes are such that all computed normals agree
};

double slack_of(double longest)
{
    return k_snap + k_tilt_share * longest;
}

void edge_of(const tr_rec& tr, int i, double* out)
{
    for (int k = 0; k < 3; ++k)
        out[k] = static_cast<double>(corner_pos(tr, next3(i))[k]) -
                 static_cast<double>(corner_pos(tr, i)[k]);
}

double length(const double* v)
{
    return std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
}

shape shape_of(const tr_rec& tr)
{
    double e[3][3];
    double shortest = std::numeric_limits<double>::infinity();
    double longest = 0.0;
    for (int i = 0; i < 3; ++i) {
        edge_of(tr, i, e[i]);
        const double len = length(e[i]);
        shortest = len < shortest ? len : shortest;
        longest = len > longest ? len : longest;
    }
    shape s = {{e[0][1] * e[1][2] - e[0][2] * e[1][1], e[0][2] * e[1][0] - e[0][0] * e[1][2],
                e[0][0] * e[1][1] - e[0][1] * e[1][0]},
               longest,
               false};
    const double area = length(s.nrm);
    s.clear = area >= k_least_area && shortest >= k_least_edge &&
              area >= k_least_sine * (longest * longest) &&
              area >= k_least_widest * (shortest * longest);
    for (double& part : s.nrm)
        part /= area;
    return s;
}

// A normal that is still to come is computed from the corners; one that stands may say otherwise.
bool lies_clearly(const tr_rec& tr, const shape& s)
{
    if (!s.clear) return false;
    if ((tr.flags & tr_no_nrm) || wants_ray_nrm(tr)) return true;
    const int axis = axis_of_normal(tr.nrm);
    return axis >= 0 && std::fabs(s.nrm[axis]) >= k_least_nrm_part;
}

bool is_in_range(const tr_rec& tr)
{
    for (int i = 0; i < 3; ++i)
        for (int k = 0; k < 3; ++k)
            if (!(std::fabs(static_cast<double>(corner_pos(tr, i)[k])) <= k_most_extent))
                return false;
    return true;
}

// A triangle in its box, while the index is built.
struct boxed_tr {
    aabb box;
    tr_h tr;
    float longest; // of the edges, or endless
    float nrm[3];
};

struct boxed_trs {
    boxed_tr* items; // owned
    std::uint32_t count;
    std::uint32_t capacity;
};

// Triangles in the tree.
struct collection {
    tr_h* trs; // owned
    std::uint32_t count;
    std::uint32_t capacity;
};

// Room for one more; null when memory ran out, and the items stand.
template <class item_t> bool make_room(item_t** items, std::uint32_t count, std::uint32_t* capacity)
{
    if (count < *capacity) return true;
    const std::uint32_t wanted = count + count / 2 + 1024;
    void* grown = heap_realloc(*items, sizeof(item_t) * std::size_t{wanted});
    if (!grown) return false;
    *items = static_cast<item_t*>(grown);
    *capacity = wanted;
    return true;
}

bool collect(tr_h t, collection* some)
{
    if (!make_room(&some->trs, some->count, &some->capacity)) return false;
    some->trs[some->count++] = t;
    return true;
}

// Triangles that have equal corners are never met. The order does not matter.
bool collect_trs(collection* all, collection* suspects)
{
    for (std::uint32_t i = 1; i < obj_pool.used; ++i) {
        if (!is_in_tree(rec(obj_h{i}))) continue;
        const tr_h t = rec(obj_h{i}).tr;
        const tr_rec& tr = rec(t);
        if (tr.cell != obj_h{i} || !is_in_range(tr)) return false;
        if (wants_ray_nrm(tr) && !tr_has_open_corner(tr) && !collect(t, suspects)) return false;
        if (!tr_has_equal_corners(tr) && !collect(t, all)) return false;
    }
    return true;
}

void widen_extent(const aabb& box, ray_index* index)
{
    for (int k = 0; k < 3; ++k) {
        const double low = std::fabs(static_cast<double>(box.min[k]));
        const double high = std::fabs(static_cast<double>(box.max[k]));
        index->extent = low > index->extent ? low : index->extent;
        index->extent = high > index->extent ? high : index->extent;
    }
}

bool belongs_to(std::uint32_t tree, const tr_rec& tr, const shape& s)
{
    if (tree >= k_clear_trees) return true;
    return lies_clearly(tr, s) && (tree != 0 || (tr.flags & tr_edge_err));
}

// Boxes what belongs to the tree. What lies clearly leaves the collection.
bool box_trs(std::uint32_t tree, collection* all, boxed_trs* boxed, ray_index* index)
{
    std::uint32_t left = 0;
    for (std::uint32_t i = 0; i < all->count; ++i) {
        const tr_rec& tr = rec(all->trs[i]);
        const shape s = shape_of(tr);
        if (!belongs_to(tree, tr, s)) {
            all->trs[left++] = all->trs[i];
            continue;
        }
        if (!make_room(&boxed->items, boxed->count, &boxed->capacity)) return false;
        boxed_tr item = {box_of_tr(tr), all->trs[i], static_cast<float>(s.longest), {}};
        for (int k = 0; k < 3; ++k)
            item.nrm[k] = static_cast<float>(s.nrm[k]);
        widen_extent(item.box, index);
        box_widen(&item.box, slack_of(s.longest));
        if (tree >= k_clear_trees) {
            item.box.min[tree - k_clear_trees] = -k_endless;
            item.box.max[tree - k_clear_trees] = k_endless;
            item.longest = k_endless;
        }
        boxed->items[boxed->count++] = item;
    }
    if (tree < k_clear_trees) all->count = left;
    return true;
}

bool box_suspects(const collection& suspects, boxed_trs* boxed)
{
    for (std::uint32_t i = 0; i < suspects.count; ++i) {
        if (!make_room(&boxed->items, boxed->count, &boxed->capacity)) return false;
        const tr_h t = suspects.trs[i];
        boxed->items[boxed->count++] = {rec(rec(t).cell).box, t, 0.0f, {}};
    }
    return true;
}

float middle(const boxed_tr& item, int axis)
{
    return item.box.min[axis] + item.box.max[axis];
}

// The axis along which the middles spread furthest; that of endless boxes is none.
int axis_to_part(const boxed_tr* items, std::uint32_t count)
{
    int widest = 0;
    float spread = -1.0f;
    for (int axis = 0; axis < 3; ++axis) {
        float low = middle(items[0], axis);
        float high = low;
        for (std::uint32_t i = 1; i < count; ++i) {
            const float at = middle(items[i], axis);
            low = at < low ? at : low;
            high = at > high ? at : high;
        }
        if (!(high - low > spread)) continue;
        spread = high - low;
        widest = axis;
    }
    return widest;
}

aabb box_of_items(const boxed_tr* items, std::uint32_t count)
{
    aabb box = items[0].box;
    for (std::uint32_t i = 1; i < count; ++i) {
        box_add(&box, items[i].box.min);
        box_add(&box, items[i].box.max);
    }
    return box;
}

// Halves the items until they are few. Nodes are filled from the front, siblings side by side.
void build_node(ray_index* index, std::uint32_t node, boxed_tr* all, std::uint32_t first,
                std::uint32_t count)
{
    boxed_tr* const items = all + first;
    index->nodes[node] = {box_of_items(items, count), first, count};
    if (count <= k_box_row) return;
    const int axis = axis_to_part(items, count);
    const std::uint32_t half = count / 2;
    std::nth_element(
        items, items + half, items + count,
        [axis](const boxed_tr& a, const boxed_tr& b) { return middle(a, axis) < middle(b, axis); });
    const std::uint32_t low = index->node_count;
    index->node_count += 2;
    index->nodes[node].first = low;
    index->nodes[node].count = 0;
    build_node(index, low, all, first, half);
    build_node(index, low + 1, all, first + half, count - half);
}

// The entries in the order of the nodes, and their faces in rows.
void enter_items(const boxed_trs& boxed, ray_index* index)
{
    for (std::uint32_t i = 0; i < boxed.count; ++i) {
        const boxed_tr& item = boxed.items[i];
        index_entry* const entry = &index->entries[i];
        entry->tr = item.tr;
        entry->longest = item.longest;
        vec_copy(item.nrm, entry->nrm);
        entry->obj = rec(item.tr).cell;
        entry->plane = {};
        for (int k = 0; k < 3; ++k)
            vec_copy(corner_pos(rec(item.tr), k), entry->plane.corners[k]);
        for (std::uint32_t k = 0; k < 3; ++k) {
            index->faces[std::size_t{k} * index->row + i] = item.box.min[k];
            index->faces[std::size_t{k + 3} * index->row + i] = item.box.max[k];
        }
    }
}

// Halves of more than a row have half a row at least, so there are a quarter as many nodes as
// items.
bool make_index_room(std::uint32_t count, ray_index* index)
{
    index->row = count + k_box_row;
    const std::size_t faces = 6 * std::size_t{index->row};
    index->entries = heap_array<index_entry>(count);
    index->faces = heap_array<float>(faces);
    index->nodes = heap_array<index_node>(std::size_t{count} / 4 + k_index_trees + 1);
    if (!index->entries || !index->faces || !index->nodes) return false;
    for (std::size_t i = 0; i < faces; ++i)
        index->faces[i] = 0.0f;
    return true;
}

// One tree after the other.
bool build_trees(collection* all, const collection& suspects, boxed_trs* boxed, ray_index* index)
{
    std::uint32_t starts[k_index_trees + 2] = {};
    for (std::uint32_t tree = 0; tree < k_index_trees; ++tree) {
        if (!box_trs(tree, all, boxed, index)) return false;
        starts[tree + 1] = boxed->count;
    }
    if (!box_suspects(suspects, boxed) || !make_index_room(boxed->count, index)) return false;
    starts[k_suspects + 1] = boxed->count;
    for (std::uint32_t tree = 0; tree <= k_suspects; ++tree) {
        const std::uint32_t count = starts[tree + 1] - starts[tree];
        index->roots[tree] = k_no_root;
        if (count == 0) continue;
        index->roots[tree] = index->node_count++;
        build_node(index, index->roots[tree], boxed->items, starts[tree], count);
    }
    enter_items(*boxed, index);
    return true;
}

} // namespace

bool ray_index_build(ray_index* index)
{
    collection all = {};
    collection suspects = {};
    boxed_trs boxed = {};
    const bool built = collect_trs(&all, &suspects) && build_trees(&all, suspects, &boxed, index);
    heap_free(all.trs);
    heap_free(suspects.trs);
    heap_free(boxed.items);
    if (!built) ray_index_free(index);
    return built;
}

void ray_index_free(ray_index* index)
{
    heap_free(index->entries);
    heap_free(index->faces);
    heap_free(index->nodes);
    *index = {};
}

// Shares are floats: they are off by a few parts in ten millions of the way, which the margin
// covers as well, and boxes far away only need to stay far away.
bool index_line_between(const float* from, const float* to, double stray, const ray_index& index,
                        index_line* line)
{
    double extent = std::fmax(index.extent, k_least_extent);
    const double len = pt_dist(from, to);
    if (!(len > 0.0)) return false;
    for (int i = 0; i < 3; ++i) {
        const double start = std::fabs(static_cast<double>(from[i]));
        const double end = std::fabs(static_cast<double>(to[i]));
        if (!(start <= k_most_extent && end <= k_most_extent)) return false;
        extent = std::fmax(extent, std::fmax(start, end));
    }
    for (int i = 0; i < 3; ++i) {
        const double way = static_cast<double>(to[i]) - static_cast<double>(from[i]);
        const bool moves = std::fabs(way) > k_still_share * extent;
        line->from[i] = from[i];
        line->way[i] = static_cast<float>(way);
        line->dir[i] = static_cast<float>(way / len);
        line->pace[i] = moves ? static_cast<float>(1.0 / way) : k_still_pace;
        line->forward[i] = !moves || way > 0.0;
    }
    const double margin = stray + k_line_share * extent;
    line->margin = static_cast<float>(margin);
    for (int i = 0; i < 3; ++i) {
        const float back = line->forward[i] ? line->margin : -line->margin;
        line->first[i] = line->from[i] + back;
        line->last[i] = line->from[i] - back;
    }
    return margin <= k_most_extent;
}

static float larger(float a, float b)
{
    return a > b ? a : b;
}

// The line starts behind the plane, or so far on its way that it only gets further away: so does
// all that the test computes with its unit vector, which is off by less than 1e-4, wherever on the
// line it starts, and from whichever corner: since the index was made another may have become the
// first, an edge away at most. The share of the way at which it finds the plane is below 0 then, or
// beyond 1 when it comes from the other end, by more than rounding can hide. Nearly along the plane
// nothing is sure.
static bool leaves_plane_behind(const index_line& line, const index_entry& entry)
{
    float w[3];
    vec_diff(line.from, entry.plane.corners[0], w);
    const float height = w[0] * entry.nrm[0] + w[1] * entry.nrm[1] + w[2] * entry.nrm[2];
    const float pace =
        line.dir[0] * entry.nrm[0] + line.dir[1] * entry.nrm[1] + line.dir[2] * entry.nrm[2];
    const float far_off = std::fabs(w[0]) + std::fabs(w[1]) + std::fabs(w[2]);
    const float reach = far_off + entry.longest;
    const float least = static_cast<float>(k_tilt_share) * reach + 2.0f * line.margin;
    const float steepness = std::fabs(pace);
    const float distance = std::fabs(height);
    return (height * pace < 0.0f) & (steepness > static_cast<float>(k_tilt_share)) &
           (distance > least);
}

// The line passes the edges one by one, on one side or the other: the side is the volume that an
// edge spans with the line's direction. Past a triangle that it meets it is on the same side of
// all. Where the test can find a point the line is off the triangle by twice the slack and the
// margin at most. Moved by so much, it changes a volume by as much for each unit of the edge. So
// with edges on both sides, and both volumes beyond that, the triangle is missed. Places are taken
// from where the line enters the box, which keeps rounding small.
static bool line_nears_outline(const index_line& line, const index_entry& entry, float at)
{
    float start[3];
    for (int i = 0; i < 3; ++i)
        start[i] = line.from[i] + at * line.way[i];
    float c[3][3];
    for (int k = 0; k < 3; ++k)
        vec_diff(start, entry.plane.corners[k], c[k]);
    float side[3];
    for (int k = 0; k < 3; ++k) {
        float span[3];
        vec_cross(c[k], c[next3(k)], span);
        side[k] = line.dir[0] * span[0] + line.dir[1] * span[1] + line.dir[2] * span[2];
    }
    const float slack =
        static_cast<float>(k_snap) + static_cast<float>(k_tilt_share) * entry.longest + line.margin;
    const float reach = entry.longest + slack;
    const float bound = 2.0f * slack * entry.longest + k_sides_share * reach * reach;
    const float high = larger(larger(side[0], side[1]), side[2]);
    const float low = -larger(larger(-side[0], -side[1]), -side[2]);
    return !((high > bound) & (low < -bound)); // one jump, which is hard to foretell
}

// A line misses all that is not clear only by its box.
bool line_nears_entry(const index_line& line, const index_entry& entry, float at)
{
    if (entry.longest == k_endless) return true;
    return !leaves_plane_behind(line, entry) && line_nears_outline(line, entry, at);
}

} // namespace velmora
