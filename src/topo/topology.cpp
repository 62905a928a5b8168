#include "topo/topology.h"

#include "mesh/cell_tree.h"
#include "mesh/measure.h"
#include "mesh/vec.h"
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

// A table that finds no memory is no failure: the search through the tree finds the same links.
stage_result stitch_tree(std::int32_t* err, mesh_ctx* ctx)
{
    obj_list objs = {};
    stage_result result = collect_objs(&objs, err, ctx);
    if (result && !stitch_edges(objs)) result = link_nbrs(ctx->topo, err, ctx);
    list_free(&objs);
    return result;
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

// Equal triangles behind the one at `place` in its leaf; these are then done with.
void mark_equals(const obj_list& list, std::uint32_t place, const mesh_ctx& ctx)
{
    const tr_h x = rec(list_at(list, place)).tr;
    for (std::uint32_t later = place + 1; later < list.count; ++later) {
        cell_obj& y = rec(list_at(list, later));
        if (y.stamp == ctx.visit_stamp || !tr_same_vertices(rec(x), rec(y.tr))) continue;
        mark_pair(x, y.tr);
        y.stamp = ctx.visit_stamp;
    }
}

} // namespace

stage_result topo_build(std::int32_t* err, mesh_ctx* ctx)
{
    clear_results(ctx->topo);
    if (ctx->topo->reuse == 0 && !merge_vertices(err, ctx)) return stage_failed;
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
    if (result)
        for (const obj_h o : collapsed)
            tr_remove_obj(o, ctx);
    list_free(&collapsed);
    return result;
}

stage_result mark_duplicates(mesh_ctx* ctx)
{
    if (!ctx->root) return stage_ok;
    constexpr std::uint64_t marks = tr_dup | tr_prob_17;
    for_each_obj_once(ctx, [&](obj_h, const cell_obj& obj) {
        rec(obj.tr).flags &= ~marks;
        return true;
    });
    ++ctx->visit_stamp;
    walk_leaves(ctx->root, everywhere, [&](cell_node& leaf) {
        for (std::uint32_t place = 0; place < leaf.list.count; ++place) {
            cell_obj& x = rec(list_at(leaf.list, place));
            if (x.stamp == ctx->visit_stamp) continue;
            x.stamp = ctx->visit_stamp;
            mark_equals(leaf.list, place, *ctx);
        }
        return true;
    });
    return stage_ok;
}

bool tr_is_point(node_h, obj_h obj)
{
    const tr_rec& tr = rec(rec(obj).tr);
    for (int i = 0; i < 3; ++i)
        if (!pts_coincide(corner_pos(tr, i), corner_pos(tr, next3(i)))) return false;
    return true;
}

} // namespace velmora
