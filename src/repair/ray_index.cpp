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
constexpr std::uint32_t k_node_entries = 4;

constexpr double k_least_extent = 1e-6;
constexpr double k_still_share = 1e-6; // of the largest coordinate: so little is no movement
constexpr float k_still_pace = 1e20f;

struct shape {
    double nrm[3]; // unit, of no matter which side
    double longest;
    bool clear; // corners and sizes are such that all computed normals agree
};

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
    if ((tr.flags & tr_no_nrm) || !((tr.flags & tr_nrm_done) || tr.ray_nrm)) return true;
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

// All triangles in the tree, while the index is built.
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

// Triangles that have equal corners are never met. The order does not matter.
bool collect_trs(collection* all)
{
    for (std::uint32_t i = 1; i < obj_pool.used; ++i) {
        if (!is_in_tree(rec(obj_h{i}))) continue;
        const tr_h t = rec(obj_h{i}).tr;
        const tr_rec& tr = rec(t);
        if (tr.cell != obj_h{i} || !is_in_range(tr)) return false;
        if (tr_has_equal_corners(tr)) continue;
        if (!make_room(&all->trs, all->count, &all->capacity)) return false;
        all->trs[all->count++] = t;
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

// Enters what lies clearly and leaves the others in the collection, or enters those along an axis.
bool enter_trs(int tree, std::uint32_t* capacity, collection* all, ray_index* index)
{
    std::uint32_t left = 0;
    for (std::uint32_t i = 0; i < all->count; ++i) {
        const tr_rec& tr = rec(all->trs[i]);
        const shape s = shape_of(tr);
        if (tree == 0 && !lies_clearly(tr, s)) {
            all->trs[left++] = all->trs[i];
            continue;
        }
        if (!make_room(&index->entries, index->entry_count, capacity)) return false;
        index_entry entry = {box_of_tr(tr), all->trs[i], {}};
        widen_extent(entry.box, index);
        box_widen(&entry.box, k_snap + k_tilt_share * s.longest);
        if (tree != 0) {
            entry.box.min[tree - 1] = -std::numeric_limits<float>::infinity();
            entry.box.max[tree - 1] = std::numeric_limits<float>::infinity();
        }
        index->entries[index->entry_count++] = entry;
    }
    if (tree == 0) all->count = left;
    return true;
}

float middle(const index_entry& entry, int axis)
{
    return entry.box.min[axis] + entry.box.max[axis];
}

// The axis along which the middles spread furthest; that of endless boxes is none.
int axis_to_part(const index_entry* entries, std::uint32_t count)
{
    int widest = 0;
    float spread = -1.0f;
    for (int axis = 0; axis < 3; ++axis) {
        float low = middle(entries[0], axis);
        float high = low;
        for (std::uint32_t i = 1; i < count; ++i) {
            const float at = middle(entries[i], axis);
            low = at < low ? at : low;
            high = at > high ? at : high;
        }
        if (!(high - low > spread)) continue;
        spread = high - low;
        widest = axis;
    }
    return widest;
}

aabb box_of_entries(const index_entry* entries, std::uint32_t count)
{
    aabb box = entries[0].box;
    for (std::uint32_t i = 1; i < count; ++i) {
        box_add(&box, entries[i].box.min);
        box_add(&box, entries[i].box.max);
    }
    return box;
}

// Halves the entries until they are few. Nodes are filled from the front, siblings side by side.
void build_node(ray_index* index, std::uint32_t node, std::uint32_t first, std::uint32_t count)
{
    index_entry* const entries = index->entries + first;
    index->nodes[node] = {box_of_entries(entries, count), first, count};
    if (count <= k_node_entries) return;
    const int axis = axis_to_part(entries, count);
    const std::uint32_t half = count / 2;
    std::nth_element(entries, entries + half, entries + count,
                     [axis](const index_entry& a, const index_entry& b) {
                         return middle(a, axis) < middle(b, axis);
                     });
    const std::uint32_t low = index->node_count;
    index->node_count += 2;
    index->nodes[node].first = low;
    index->nodes[node].count = 0;
    build_node(index, low, first, half);
    build_node(index, low + 1, first + half, count - half);
}

// One tree after the other; a tree has fewer nodes than entries, or one.
bool build_trees(collection* all, ray_index* index)
{
    std::uint32_t capacity = 0;
    std::uint32_t starts[k_index_trees + 1] = {};
    for (int tree = 0; tree < k_index_trees; ++tree) {
        if (!enter_trs(tree, &capacity, all, index)) return false;
        starts[tree + 1] = index->entry_count;
    }
    index->nodes = heap_array<index_node>(std::size_t{index->entry_count} + k_index_trees);
    if (!index->nodes) return false;
    for (int tree = 0; tree < k_index_trees; ++tree) {
        const std::uint32_t count = starts[tree + 1] - starts[tree];
        index->roots[tree] = k_no_root;
        if (count == 0) continue;
        index->roots[tree] = index->node_count++;
        build_node(index, index->roots[tree], starts[tree], count);
    }
    return true;
}

} // namespace

bool ray_index_build(ray_index* index)
{
    collection all = {};
    const bool built = collect_trs(&all) && build_trees(&all, index);
    heap_free(all.trs);
    if (!built) ray_index_free(index);
    return built;
}

void ray_index_free(ray_index* index)
{
    heap_free(index->entries);
    heap_free(index->nodes);
    *index = {};
}

// Shares are floats: they are off by a few parts in ten millions of the way, which the margin
// covers as well, and boxes far away only need to stay far away.
bool index_line_between(const float* from, const float* to, double stray, const ray_index& index,
                        index_line* line)
{
    double extent = std::fmax(index.extent, k_least_extent);
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
        line->pace[i] = moves ? static_cast<float>(1.0 / way) : k_still_pace;
        line->forward[i] = !moves || way > 0.0;
    }
    const double margin = stray + k_line_share * extent;
    line->margin = static_cast<float>(margin);
    return margin <= k_most_extent;
}

} // namespace velmora
