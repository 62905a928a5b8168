#include "plg/boundary.h"

#include "mesh/vec.h"
#include "plg/open_trs.h"
#include "plg/plg.h"
#include "plg/split.h"
#include "plg/tr_edges.h"

namespace velmora {

namespace {

void mark_on_boundary(obj_h o)
{
    rec(rec(o).tr).flags |= tr_prob_31 | tr_on_boundary;
}

const float* end_pt(const plg_rec& plg, plg_direction direction)
{
    return plg.points[direction == plg_at_end ? plg.points.count - 1 : 0].pnt;
}

// Only leaves at the polygon's last point are searched, also when it grows at its start: a
// triangle at the first point joins when it happens to stand in one of them.
obj_h find_next(plg_direction direction, open_trs* open, const plg_rec& plg, const mesh_ctx* ctx)
{
    const float* last = end_pt(plg, plg_at_end);
    if (direction == plg_at_end) return find_next_tr(open, last, ctx);
    return find_next_tr_in(open, end_pt(plg, plg_at_start), near_box(last), ctx);
}

bool plg_extend(plg_direction direction, open_trs* open, plg_rec* plg, bool* closed, mesh_ctx* ctx)
{
    while (!*closed) {
        const obj_h next = find_next(direction, open, *plg, ctx);
        if (!next) return true;
        if (!plg_add_tr(next, direction, plg, ctx)) return false;
        mark_on_boundary(next);
        *closed = pts_same(end_pt(*plg, plg_at_start), end_pt(*plg, plg_at_end));
    }
    return true;
}

bool trace_from(obj_h start, open_trs* open, mesh_ctx* ctx)
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

bool trace_polygons(open_trs* open, mesh_ctx* ctx)
{
    for (std::uint32_t i = 0; i < open->obj_count; ++i) {
        const obj_h o = open->objs[i];
        if (rec(o).stamp != ctx->visit_stamp && !trace_from(o, open, ctx)) return false;
    }
    return true;
}

} // namespace

stage_result trace_boundaries(std::int32_t* err, mesh_ctx* ctx)
{
    open_trs open = {};
    const bool traced = open_trs_collect(&open, ctx) && trace_polygons(&open, ctx);
    open_trs_free(&open);
    topo_ctx* topo = ctx->topo;
    if (traced && plg_split_all(&topo->plg_list, &topo->plg_count)) return stage_ok;
    *err = err_no_memory;
    return stage_failed;
}

} // namespace velmora
