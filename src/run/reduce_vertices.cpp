#include "run/reduce_vertices.h"

#include "mesh/cell_tree.h"
#include "mesh/log.h"
#include "plg/boundary.h"
#include "reduce/classify.h"
#include "reduce/fan.h"
#include "reduce/normals.h"
#include "reduce/passes.h"
#include "reduce/vtx_table.h"
#include "run/options.h"

namespace velmora {

namespace {

constexpr std::int32_t k_most_talkative = 5;

bool vertex_table_stale = true;

stage_result fill_table(std::uint32_t start_count, std::int32_t* err, mesh_ctx* ctx)
{
    vtx_table* table = ctx->topo->table;
    if (vertex_table_stale) {
        if (!vtx_table_init(start_count, table, err)) return stage_failed;
        if (!vtx_table_fill(table, ctx)) return stage_failed;
        vertex_table_stale = false;
    }
    return vtx_table_refresh(table, err, ctx);
}

// By the normals of the cycle before: this cycle's are not known yet.
stage_result sort_by_deviation(vtx_table* table)
{
    vtx_dev_all(table);
    return vtx_table_sort(table);
}

stage_result classify(std::int32_t* err, mesh_ctx* ctx)
{
    topo_ctx* topo = ctx->topo;
    vtx_nrm_all(topo->table);
    if (!trace_boundaries(err, ctx)) return stage_failed;
    plg_vtx_nrm_all(*topo);
    vtx_classify_all(topo->table, *topo->params);
    return stage_ok;
}

void log_kind(const char* kind, std::uint32_t count)
{
    log_line("%s(info): %1d %s vertices reduced (%1d triangles).\n", the_options.program_name,
             static_cast<int>(count), kind, static_cast<int>(2 * count));
}

// The misspelt word is part of the log's format.
void log_counts(const pass_counts& counts)
{
    if (!logs_up_to(the_options, k_most_talkative)) return;
    log_kind("line", counts.line);
    log_kind("plane", counts.plane);
    log_kind("short edge", counts.short_edge);
    log_kind("degen", counts.degen);
    log_line("%s(info): %1d triangles removed altogeher.\n", the_options.program_name,
             static_cast<int>(2 * (counts.line + counts.plane + counts.short_edge + counts.degen)));
}

} // namespace

void mark_vertex_table_stale()
{
    vertex_table_stale = true;
}

stage_result reduce_vertices(std::uint32_t start_count, std::int32_t* err, mesh_ctx* ctx)
{
    topo_ctx* topo = ctx->topo;
    if (logs_up_to(the_options, k_most_talkative))
        log_line("%s(info): reducing vertices ...\n", the_options.program_name);
    if (!fill_table(start_count, err, ctx)) return stage_failed;
    if (topo->params->mode == mode_aspect && !sort_by_deviation(topo->table)) return stage_failed;
    if (!classify(err, ctx)) return stage_failed;
    pass_counts counts;
    reduce_passes(topo->table, *topo->params, &counts);
    log_counts(counts);
    return unless_torn(err);
}

} // namespace velmora
