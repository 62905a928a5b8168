#include "topo/merge.h"

#include "mesh/box.h"
#include "mesh/cell_tree.h"
#include "mesh/folded_cells.h"
#include "topo/leaf_points.h"
#include "topo/merge_equal.h"
#include "topo/merge_left.h"
#include "topo/merge_pair.h"
#include "topo/merge_rows.h"

namespace velmora {

namespace {

constexpr std::uint32_t k_few_members = 8; ///< up to this many are compared one by one

// Scratch of the merge, kept from leaf to leaf.
struct merge_work {
    leaf_points leaf;
    equal_runs equals;
    merge_rows rows;
    merge_left left;
    std::uint64_t merged;  // pairs so far
    std::uint32_t settled; // visit stamp of objects no two of which have anything to merge
    obj_list chosen;       // of a leaf, those with corners left; owned, holds no references
};

void merge_work_free(merge_work* w)
{
    leaf_points_free(&w->leaf);
    equal_runs_free(&w->equals);
    merge_rows_free(&w->rows);
    merge_left_close(&w->left);
    heap_free(w->chosen.items);
    *w = {};
}

// An entry against one behind it.
void merge_entries(const leaf_entry& a, std::uint32_t a_corners, const leaf_entry& b,
                   std::uint32_t b_corners, merge_work* w)
{
    if (box_overlap(a.box, b.box)) w->merged += merge_corners(a, a_corners, b, b_corners);
}

void merge_all_pairs(merge_work* w)
{
    const leaf_points& leaf = w->leaf;
    for (std::uint32_t a = 0; a < leaf.entry_count; ++a)
        for (std::uint32_t b = a + 1; b < leaf.entry_count; ++b)
            merge_entries(leaf.entries[a], k_all_corners, leaf.entries[b], k_all_corners, w);
}

void merge_cluster_pairs(const point_cluster& c, merge_work* w)
{
    const leaf_entry* entries = w->leaf.entries;
    const cluster_member* members = w->leaf.members + c.first;
    for (std::uint32_t a = 0; a < c.count; ++a)
        for (std::uint32_t b = a + 1; b < c.count; ++b)
            merge_entries(entries[members[a].entry], members[a].corners, entries[members[b].entry],
                          members[b].corners, w);
}

// False when memory ran out.
bool merge_cluster(const point_cluster& c, merge_work* w)
{
    if (!c.all_meet && (c.count <= k_few_members || c.count > k_most_in_rows)) {
        merge_cluster_pairs(c, w);
        return true;
    }
    const std::int64_t merged =
        c.all_meet ? merge_equal(w->leaf, c, &w->equals) : merge_by_rows(w->leaf, c, &w->rows);
    if (merged > 0) w->merged += static_cast<std::uint64_t>(merged);
    return merged >= 0;
}

bool merge_list(const obj_list& list, merge_work* w)
{
    if (!leaf_points_load(list, w->left.corners, &w->leaf)) return false;
    if (!w->leaf.clustered) merge_all_pairs(w);
    for (std::uint32_t c = 0; c < w->leaf.cluster_count; ++c)
        if (!merge_cluster(w->leaf.clusters[c], w)) return false;
    return true;
}

bool is_settled(const obj_list& list, std::uint32_t stamp)
{
    for (const obj_h o : list)
        if (rec(o).stamp != stamp) return false;
    return true;
}

// Where boxes are large, leaf after leaf lists the same objects. Whether two corners merge depends
// on neither the leaf nor the order, so a list in which nothing merged settles any part of it,
// until something merges elsewhere.
bool merge_leaf(const obj_list& list, merge_work* w, mesh_ctx* ctx)
{
    if (list.count < 2 || is_settled(list, w->settled)) return true;
    const std::uint64_t before = w->merged;
    merge_left_pace(&w->left, list.count);
    if (!merge_list(list, w)) return false;
    w->settled = ++ctx->visit_stamp;
    if (w->merged != before) return true;
    for (const obj_h o : list)
        rec(o).stamp = w->settled;
    return true;
}

// The others have no corner that is close to one of another vertex.
bool merge_chosen(const obj_list& list, merge_work* w, mesh_ctx* ctx)
{
    if (!list_reserve(&w->chosen, list.count)) return false;
    w->chosen.count = 0;
    for (std::uint32_t i = 0; i < list.count; ++i)
        if (w->left.corners[list.items[i].i]) w->chosen.items[w->chosen.count++] = list.items[i];
    return merge_leaf(w->chosen, w, ctx);
}

// Whether the leaves of a folded cell can have anything to merge: if all its objects are settled,
// so is each part of them.
bool has_unsettled(const cell_node& folded, const merge_work& w)
{
    return any_folded(folded,
                      [&](obj_h o) { return w.left.corners[o.i] && rec(o).stamp != w.settled; });
}

bool merge_tree(merge_work* w, mesh_ctx* ctx)
{
    if (!merge_left_open(&w->left, ctx)) return false;
    w->settled = ++ctx->visit_stamp;
    const auto unfolds = [w](const cell_node& n) { return has_unsettled(n, *w); };
    return walk_leaves_in_passing(
        ctx->root, unfolds, [&](const cell_node& leaf) { return merge_chosen(leaf.list, w, ctx); });
}

} // namespace

stage_result merge_vertices(std::int32_t* err, mesh_ctx* ctx)
{
    if (!ctx->root) return stage_ok;
    merge_work w = {};
    const bool done = merge_tree(&w, ctx);
    merge_work_free(&w);
    if (!done) *err = err_no_memory;
    return done ? stage_ok : stage_failed;
}

} // namespace velmora
