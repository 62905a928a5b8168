#include "topo/topology.h"

#include "mesh/cell_tree.h"
#include "mesh/measure.h"
#include "mesh/vec.h"
#include "repair/edge_groups.h"
#include "repair/stitch.h"
#include "topo/edge_tbl.h"
#include "topo/links.h"
#include "topo/merge.h"

namespace velmora {

namespace {

void clear_results(topo_ctx* topo)
{
    topo->tri_with_3_nbrs = topo->thin_deleted = topo->dup_removed = 0;
    list_free(&topo->edge_err_list);
    topo->edge_errors = 0;
    edge_tbl_free(&topo->edge_errs);
}

bool merge_first(const topo_ctx& topo)
{
    return topo.reuse == 0 && (topo.weld == weld_none || topo.weld == weld_some);
}

bool stitch_by_position(bool* stitched, std::int32_t* err, mesh_ctx* ctx)
{
    obj_list objs = {};
    const stage_result result = collect_objs(&objs, err, ctx);
    if (result) *stitched = stitch_edges(objs);
    list_free(&objs);
    return result == stage_ok;
}

// A table that finds no memory is no failure: the search through the tree links as well. Where
// vertices at one place have stayed apart it may count edge errors that the table would have
// spared.
stage_result stitch_tree(std::int32_t* err, mesh_ctx* ctx)
{
    topo_ctx* topo = ctx->topo;
    topo->vtx_distinct = topo->weld == weld_distinct || vertices_are_distinct(ctx);
    if (topo->vtx_distinct) {
        edge_groups_build(topo->sides, ctx);
        if (topo->sides->starts) {
            stitch_distinct(topo->sides);
            return stage_ok;
        }
    }
    bool stitched = false;
    if (!stitch_by_position(&stitched, err, ctx)) return stage_failed;
    return stitched ? stage_ok : link_nbrs(topo, err, ctx);
}

stage_result collect_collapsed(obj_list* collapsed, std::int32_t* err, mesh_ctx* ctx)
{
    const bool done = for_each_obj_once(ctx, [&](obj_h o, const cell_obj& obj) {
        return !tr_collapsed(rec(obj.tr)) || list_push(collapsed, o);
    });
    if (!done) *err = err_no_memory;
    return done ? stage_ok : stage_failed;
}

void mark_pair(tr_h x, tr_h y)
{
    if ((rec(x).flags | rec(y).flags) & tr_dup) return;
    tr_set_mark(x, 15);
    tr_set_mark(y, 15);
}

// The first triangle of each set of three vertices in a leaf.
struct triple_table {
    tr_h* slots; // owned; a hash with at least half of the slots free
    std::uint32_t mask;
    std::uint32_t capacity;
};

std::uint64_t hash_of_vertices(const tr_rec& tr)
{
    std::uint64_t sum = 0;
    for (const vtx_h v : tr.vtx) {
        const std::uint64_t h = v.i * 0x9E3779B97F4A7C15ull;
        sum += h ^ h >> 31;
    }
    return sum * 0x9E3779B97F4A7C15ull >> 24;
}

bool triple_table_clear(triple_table* table, std::uint32_t entries)
{
    std::uint32_t size = 64;
    while (size / 2 < entries && size < 0x80000000u)
        size *= 2;
    if (size > table->capacity) {
        heap_free(table->slots);
        table->slots = static_cast<tr_h*>(heap_alloc(sizeof(tr_h) * size));
        table->capacity = table->slots ? size : 0;
        if (!table->slots) return false;
    }
    for (std::uint32_t i = 0; i < size; ++i)
        table->slots[i] = {};
    table->mask = size - 1;
    return true;
}

// The triangle in the table with the vertices of `t`, which is `t` itself when it is the first.
tr_h first_equal(triple_table* table, tr_h t)
{
    auto slot = static_cast<std::uint32_t>(hash_of_vertices(rec(t))) & table->mask;
    for (; table->slots[slot]; slot = (slot + 1) & table->mask)
        if (tr_same_vertices(rec(table->slots[slot]), rec(t))) return table->slots[slot];
    return table->slots[slot] = t;
}

// Each triangle not seen in an earlier leaf, against the first of its equals.
void mark_leaf(const obj_list& list, triple_table* table, const mesh_ctx& ctx)
{
    for (const obj_h o : list) {
        cell_obj& obj = rec(o);
        if (obj.stamp == ctx.visit_stamp) continue;
        obj.stamp = ctx.visit_stamp;
        const tr_h first = first_equal(table, obj.tr);
        if (first != obj.tr) mark_pair(first, obj.tr);
    }
}

} // namespace

stage_result topo_build(std::int32_t* err, mesh_ctx* ctx)
{
    clear_results(ctx->topo);
    if (merge_first(*ctx->topo) && !merge_vertices(err, ctx)) return stage_failed;
    if (!drop_collapsed(err, ctx)) return stage_failed;
    if (!stitch_tree(err, ctx)) return stage_failed;
    return topo_relink(err, ctx);
}

stage_result topo_update(std::int32_t* err, mesh_ctx* ctx)
{
    clear_results(ctx->topo);
    return topo_relink(err, ctx);
}

stage_result topo_relink(std::int32_t* err, mesh_ctx* ctx)
{
    if (!drop_collapsed(err, ctx)) return stage_failed;
    if (!ctx->topo->sides->starts) edge_groups_build(ctx->topo->sides, ctx);
    return link_nbrs(ctx->topo, err, ctx);
}

stage_result collect_objs(obj_list* objs, std::int32_t* err, mesh_ctx* ctx)
{
    if (!ctx->root) return stage_ok;
    std::uint32_t count = 0;
    ++ctx->visit_stamp;
    if (tree_collect(ctx->root, objs, &count, ctx)) return stage_ok;
    *err = err_no_memory;
    return stage_failed;
}

// Taking out prunes leaves, which would pull the list out from under a walk: hence the chain.
stage_result drop_collapsed(std::int32_t* err, mesh_ctx* ctx)
{
    obj_list collapsed = {};
    const stage_result result = collect_collapsed(&collapsed, err, ctx);
    if (result) tr_remove_objs(collapsed, ctx);
    list_free(&collapsed);
    return result;
}

stage_result mark_duplicates(mesh_ctx* ctx)
{
    if (!ctx->root) return stage_ok;
    constexpr std::uint64_t k_marks = tr_dup | tr_prob_17;
    for_each_obj_once(ctx, [&](obj_h, const cell_obj& obj) {
        rec(obj.tr).flags &= ~k_marks;
        return true;
    });
    ++ctx->visit_stamp;
    triple_table table = {};
    const bool done = walk_unseen(ctx->root, *ctx, [&](cell_node& leaf) {
        if (!triple_table_clear(&table, leaf.list.count)) return false;
        mark_leaf(leaf.list, &table, *ctx);
        return true;
    });
    heap_free(table.slots);
    return done ? stage_ok : stage_failed;
}

bool tr_is_point(node_h, obj_h obj)
{
    const tr_rec& tr = rec(rec(obj).tr);
    for (int i = 0; i < 3; ++i)
        if (!pts_coincide(corner_pos(tr, i), corner_pos(tr, next3(i)))) return false;
    return true;
}

} // namespace velmora
