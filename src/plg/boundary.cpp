#include "plg/boundary.h"

#include "mesh/box.h"
#include "mesh/cell_tree.h"
#include "mesh/measure.h"
#include "mesh/vec.h"
#include "plg/open_corners.h"
#include "plg/plg.h"
#include "plg/split.h"
#include "plg/tr_edges.h"

namespace velmora {

namespace {

// A lone triangle starts no polygon and joins none: its stamp says that it is dealt with. One that
// stands in two leaves is listed twice.
bool lone_tr_add(obj_h o, topo_ctx* topo, const mesh_ctx* ctx)
{
    if (!list_push(&topo->lone_list, o)) return false;
    ++topo->lone_count;
    rec(o).stamp = ctx->visit_stamp;
    return true;
}

// One walk over all leaves sorts out the lone triangles and the open ones.
bool collect_open_trs(open_corner_tbl* open, mesh_ctx* ctx)
{
    if (!ctx->root) return true;
    return walk_leaves(ctx->root, everywhere, [&](cell_node& leaf) {
        for (const obj_h o : leaf.list) {
            const int nbrs = tr_nbr_count(rec(rec(o).tr));
            if (nbrs == 3) continue;
            const bool done =
                nbrs == 0 ? lone_tr_add(o, ctx->topo, ctx) : open_corners_add(open, o, leaf.box);
            if (!done) return false;
        }
        return true;
    });
}

void mark_on_boundary(obj_h o)
{
    rec(rec(o).tr).flags |= tr_prob_31 | tr_on_boundary;
}

const float* end_pt(const plg_rec& plg, plg_direction direction)
{
    return plg.points[direction == plg_at_end ? plg.points.count - 1 : 0].pnt;
}

aabb plg_end_box(const plg_rec& plg)
{
    const float* last = end_pt(plg, plg_at_end);
    aabb box = {{last[0], last[1], last[2]}, {last[0], last[1], last[2]}};
    box_widen(&box, static_cast<double>(merge_tol));
    return box;
}

// Only leaves at the polygon's last point are searched, also when it grows at its start: a
// triangle at the first point joins when it happens to stand in one of them.
bool plg_extend(plg_direction direction, open_corner_tbl* open, plg_rec* plg, bool* closed,
                mesh_ctx* ctx)
{
    while (!*closed) {
        const obj_h next =
            find_next_tr(open, end_pt(*plg, direction), plg_end_box(*plg), ctx->visit_stamp);
        if (!next) return true;
        if (!plg_add_tr(next, direction, plg, ctx)) return false;
        mark_on_boundary(next);
        *closed = pts_same(end_pt(*plg, plg_at_start), end_pt(*plg, plg_at_end));
    }
    return true;
}

bool trace_from(obj_h start, open_corner_tbl* open, mesh_ctx* ctx)
{
    plg_cell* cell = plg_list_push(&ctx->topo->plg_list);
    if (!cell) return false;
    ++ctx->topo->plg_count;
    if (!plg_add_tr(start, plg_first, &cell->plg, ctx)) return false;
    mark_on_boundary(start);
    bool closed = false;
    return plg_extend(plg_at_end, open, &cell->plg, &closed, ctx) &&
           plg_extend(plg_at_start, open, &cell->plg, &closed, ctx);
}

// The corners stand in the order of the tree; the first one of an unused triangle starts a polygon.
bool trace_polygons(open_corner_tbl* open, mesh_ctx* ctx)
{
    if (!open_corners_index(open)) return false;
    for (std::uint32_t i = 0; i < open->count; ++i) {
        const obj_h o = open->corners[i].obj;
        if (rec(o).stamp != ctx->visit_stamp && !trace_from(o, open, ctx)) return false;
    }
    return true;
}

} // namespace

stage_result trace_boundaries(std::int32_t* err, mesh_ctx* ctx)
{
    ++ctx->visit_stamp;
    open_corner_tbl open = {};
    const bool traced = collect_open_trs(&open, ctx) && trace_polygons(&open, ctx);
    open_corners_free(&open);
    topo_ctx* topo = ctx->topo;
    if (traced && plg_split_all(&topo->plg_list, &topo->plg_count)) return stage_ok;
    *err = err_no_memory;
    return stage_failed;
}

} // namespace velmora
