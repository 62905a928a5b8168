#include "topo/merge.h"

#include "mesh/box.h"
#include "mesh/cell_tree.h"
#include "topo/leaf_points.h"
#include "topo/merge_equal.h"
#include "topo/merge_pair.h"
#include "topo/merge_rows.h"

#include <cstring>

namespace velmora {

namespace {

constexpr std::uint32_t k_few_members = 8; ///< up to this many are compared one by one

// Scratch of the merge, kept from leaf to leaf.
struct merge_work {
    leaf_points leaf;
    equal_runs equals;
    merge_rows rows;
    std::uint64_t merged;   // pairs so far
    std::uint32_t settled;  // visit stamp of objects no two of which have anything to merge
    std::uint8_t* looks_at; // by object: 1 when it has corners for the merge; null: all may; owned
    obj_list chosen;        // those of a leaf, in its order; owned, holds no references
};

void merge_work_free(merge_work* w)
{
    leaf_points_free(&w->leaf);
    equal_runs_free(&w->equals);
    merge_rows_free(&w->rows);
    heap_free(w->looks_at);
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
    if (!leaf_points_load(list, &w->leaf)) return false;
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
    if (!merge_list(list, w)) return false;
    w->settled = ++ctx->visit_stamp;
    if (w->merged != before) return true;
    for (const obj_h o : list)
        rec(o).stamp = w->settled;
    return true;
}

// Moves the marks of the triangles to where they are at hand for each entry of a list.
bool choose_objects(merge_work* w, mesh_ctx* ctx)
{
    const std::size_t objs = obj_pool.used;
    w->looks_at = heap_array<std::uint8_t>(objs);
    if (!w->looks_at) return false;
    std::memset(w->looks_at, 0, objs);
    return for_each_obj_once(ctx, [&](obj_h o, const cell_obj& obj) {
        tr_rec& tr = rec(obj.tr);
        w->looks_at[o.i] = (tr.flags & tr_may_merge) != 0;
        tr.flags &= ~tr_may_merge;
        return true;
    });
}

// The others have no corner that is equal to one of another vertex.
bool merge_chosen(const obj_list& list, merge_work* w, mesh_ctx* ctx)
{
    if (!list_reserve(&w->chosen, list.count)) return false;
    w->chosen.count = 0;
    for (std::uint32_t i = 0; i < list.count; ++i)
        if (w->looks_at[list.items[i].i]) w->chosen.items[w->chosen.count++] = list.items[i];
    return merge_leaf(w->chosen, w, ctx);
}

bool merge_tree(merge_work* w, mesh_ctx* ctx)
{
    const bool some = ctx->topo && ctx->topo->weld == weld_some;
    if (some && !choose_objects(w, ctx)) return false;
    w->settled = ++ctx->visit_stamp;
    return walk_leaves(ctx->root, everywhere, [&](cell_node& leaf) {
        return some ? merge_chosen(leaf.list, w, ctx) : merge_leaf(leaf.list, w, ctx);
    });
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
