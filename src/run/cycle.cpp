#include "run/cycle.h"

#include "files/stl_stream.h"
#include "mesh/box.h"
#include "mesh/cell_tree.h"
#include "mesh/log.h"
#include "mesh/measure.h"
#include "mesh/renumber.h"
#include "mesh/tree_renew.h"
#include "mesh/vec.h"
#include "plg/plg.h"
#include "reduce/vtx_table.h"
#include "repair/orient.h"
#include "repair/thin.h"
#include "run/build_topology.h"
#include "run/errors.h"
#include "run/options.h"
#include "run/progress.h"
#include "run/reduce_vertices.h"
#include "run/run_audit.h"
#include "topo/edge_tbl.h"
#include "topo/topology.h"

namespace velmora {

namespace {

constexpr std::uint32_t k_uncounted = 0x7ffffffe; ///< more bad triangles than any count finds
constexpr double k_cycle_percent = 30.0;
constexpr double k_cycle_span = 50.0;

bool is_aspect_mode(const mesh_ctx* ctx)
{
    return ctx->topo->params->mode == mode_aspect;
}

std::int32_t cycle_percent(std::int64_t done, std::uint32_t base)
{
    if (base == 0) return static_cast<std::int32_t>(k_cycle_percent);
    const double share = static_cast<double>(done) / static_cast<double>(base);
    return static_cast<std::int32_t>(k_cycle_percent + k_cycle_span * share);
}

int show_cycle_progress(std::int64_t done, std::uint32_t base)
{
    return update_progress(false, cycle_percent(done, base), run_progress_callback);
}

// What a turn leaves behind besides the mesh and the vertex table.
void free_turn_lists(topo_ctx* topo)
{
    list_free(&topo->edge_err_list);
    list_free(&topo->lone_list);
    topo->lone_count = 0;
    edge_tbl_free(&topo->edge_errs);
}

void free_polygons(topo_ctx* topo)
{
    plg_list_free(&topo->plg_list);
    topo->plg_count = 0;
}

// One degenerate triangle for each vertex that went: from where it stood to what took its place.
stage_result write_removed(std::int32_t* err, const topo_ctx& topo)
{
    stl_stream* stream = the_options.removed_stream;
    if (!stream) return stage_ok;
    const vtx_table& table = *topo.table;
    for (std::uint32_t i = 0; i < table.count; ++i) {
        if (table.types[i] != vtx_removed) continue;
        const vtx_info& info = table.infos[i];
        stl_tri tri = {};
        vec_copy(info.moved, tri.corner1);
        vec_copy(rec(info.vtx).pos, tri.corner2);
        vec_copy(info.moved, tri.corner3);
        if (stl_put_triangle(stream, &tri)) continue;
        *err = err_stl_output;
        return stage_failed;
    }
    return stage_ok;
}

// Failing to write what was removed does not stop the reduction.
void write_removed_if_wanted(std::int32_t* err, const topo_ctx& topo)
{
    if (is_given(the_options, given_multi_pass) || !is_given(the_options, given_removed)) return;
    if (write_removed(err, topo) == stage_failed) return;
}

void free_vtx_table(bool keep_records, vtx_table* table)
{
    if (keep_records) {
        vtx_table_clear_fans(table);
    } else {
        vtx_table_free(table);
    }
}

struct turn_counts {
    std::uint32_t base;   // triangles at the start of the cycle
    std::int64_t removed; // by the turns so far; below 0 when a repair has added some
};

stage_result run_turn(const turn_counts& counts, std::int32_t* cycle, std::int32_t* err,
                      mesh_ctx* ctx)
{
    topo_ctx* topo = ctx->topo;
    const bool aspect = is_aspect_mode(ctx);
    if (!aspect) mark_vertex_table_stale();
    if (*cycle > 0) {
        renumber_mesh(topo->table->count ? renumber_keep_vertices : renumber_all, ctx);
        reset_orientation(ctx);
    }
    if (!build_topology(*cycle, err, ctx)) return stage_failed;
    audit_run("building the topology", ctx);
    ++*cycle;
    if (!reduce_vertices(counts.base, err, ctx)) return stage_failed;
    audit_run("reducing vertices", ctx);
    if (!show_cycle_progress(counts.removed, counts.base)) return stage_failed;
    free_polygons(topo);
    free_turn_lists(topo);
    write_removed_if_wanted(err, *topo);
    free_vtx_table(aspect, topo->table);
    if (!rebuild_cell_tree(err, ctx)) return stage_failed;
    audit_run("dropping collapsed triangles", ctx);
    return aspect ? mark_duplicates(ctx) : stage_ok;
}

// Inserts all objects of `list` into the tree as if they had just been read, with exact boxes.
bool add_again(const obj_list& list, mesh_ctx* ctx)
{
    for (const obj_h o : list) {
        cell_obj& obj = rec(o);
        rec(obj.tr).plane_class = 0;
        obj.box = box_of_tr(rec(obj.tr));
        tr_assign_id(o, false, ctx);
        if (!tree_add(o, nullptr, ctx)) return false;
    }
    return true;
}

stage_result thin_turn(std::int32_t cycle, thin_counts* counts, std::int32_t* err, mesh_ctx* ctx)
{
    const reduce_params& params = *ctx->topo->params;
    *counts = {};
    if (!build_topology(cycle, err, ctx)) return stage_failed;
    // Later, what has replaced thin triangles counts one holder more than it has.
    if (cycle == 0) audit_run("building the topology", ctx);
    return repair_thin_triangles(params.height_ratio, params.angle_tol, counts, err, ctx);
}

} // namespace

std::uint32_t count_bad_triangles(double limit, mesh_ctx* ctx)
{
    std::uint32_t bad = 0;
    if (limit >= k_no_angle_limit && vtxs_are_apart()) return bad;
    for_each_obj_once(ctx, [&](obj_h, cell_obj& obj) {
        if (tr_max_cos(rec(obj.tr), limit).above) ++bad;
        return true;
    });
    return bad;
}

stage_result reduce_cycle(std::uint32_t* start_count, std::int32_t* cycle, std::int32_t* err,
                          mesh_ctx* ctx)
{
    turn_counts counts = {ctx->tr_count, 0};
    *start_count = counts.base;
    std::uint32_t bad = k_uncounted;
    std::uint32_t bad_before;
    do {
        const std::uint32_t count_before = ctx->tr_count;
        bad_before = bad;
        if (!run_turn(counts, cycle, err, ctx)) return stage_failed;
        counts.removed += static_cast<std::int64_t>(count_before) - ctx->tr_count;
        bad = count_bad_triangles(ctx->topo->params->min_angle_cos, ctx);
        if (!unless_torn(err)) return stage_failed;
    } while (bad < bad_before);
    return stage_ok;
}

// A Stop at the progress call does not end this branch; the next call of the run notices it.
stage_result shape_cycle(std::int32_t* err, mesh_ctx* ctx)
{
    if (!(ctx->topo->params->height_ratio > 0.0)) return stage_ok;
    const std::uint32_t base = ctx->tr_count;
    std::uint32_t fixed = 0;
    std::uint32_t found_before = k_uncounted;
    std::int32_t cycle = 0;
    thin_counts counts;
    do {
        if (!thin_turn(cycle++, &counts, err, ctx)) return stage_failed;
        fixed += counts.fixed;
        if (!show_cycle_progress(fixed, base)) free_polygons(ctx->topo);
        free_turn_lists(ctx->topo);
        if (!is_given(the_options, given_multi_pass)) return stage_ok;
        if (counts.found >= found_before) return stage_ok;
        found_before = counts.found;
    } while (counts.fixed > 0);
    return stage_ok;
}

// With a box that has no middle the cuts depend on what is compared with them: one by one.
static bool renew_one_by_one(mesh_ctx* ctx)
{
    obj_list all = {};
    std::uint32_t count = 0;
    ++ctx->visit_stamp;
    bool done = tree_collect(ctx->root, &all, &count, ctx);
    if (done) {
        cell_make_leaf(ctx->root);
        ctx->tr_count = 0;
        done = add_again(all, ctx);
    }
    list_free(&all);
    return done;
}

stage_result rebuild_cell_tree(std::int32_t* err, mesh_ctx* ctx)
{
    if (is_leaf(rec(ctx->root))) return drop_collapsed(err, ctx);
    const renew_result renewed = tree_renew(ctx);
    if (renewed == renew_done) return stage_ok;
    if (renewed == renew_declined && renew_one_by_one(ctx)) return drop_collapsed(err, ctx);
    log_line("%s(ERROR): memory exhausted.\n", the_options.program_name);
    report_error(err_no_memory);
    return stage_failed;
}

} // namespace velmora
