#include "run/build_topology.h"

#include "mesh/cell_tree.h"
#include "mesh/log.h"
#include "mesh/tolerances.h"
#include "reduce/axes.h"
#include "repair/degenerate.h"
#include "repair/orient.h"
#include "run/options.h"
#include "topo/topology.h"

namespace velmora {

namespace {

constexpr std::int32_t k_most_talkative = 5;

const char* name()
{
    return the_options.program_name;
}

bool logs_info()
{
    return logs_up_to(the_options, k_most_talkative);
}

int as_int(std::uint32_t count)
{
    return static_cast<int>(count);
}

stage_result link_up(std::int32_t cycle, std::int32_t* err, mesh_ctx* ctx)
{
    ctx->topo->reuse = cycle == 0 ? 0 : 1;
    if (cycle != 0) return topo_update(err, ctx);
    if (logs_info()) log_line("%s(info): constructing the topology information ...\n", name());
    return topo_build(err, ctx);
}

void report_links(const mesh_ctx& ctx)
{
    const topo_ctx& topo = *ctx.topo;
    if (ctx.model->tri_with_3_nbrs != ctx.tr_count)
        log_line("%s(WARNING): %1d triangles with less than three neigbors.\n", name(),
                 as_int(ctx.tr_count - ctx.model->tri_with_3_nbrs));
    if (topo.dup_pairs != 0) {
        log_line("%s(WARNING): %1d non-thin duplicate triangle pairs in the triangle mesh.\n",
                 name(), as_int(topo.dup_pairs));
        log_line("%s(WARNING): %1d duplicate triangles removed (non-thin and thin).\n", name(),
                 as_int(topo.dup_removed));
    }
    if (topo.edge_errors != 0)
        log_line("%s(WARNING): %1d triangles with edge errors.\n", name(),
                 as_int(topo.edge_errors));
    if (topo.thin_deleted != 0 && logs_info())
        log_line("%s(info): number of deleted thin triangles from the input: %1d\n", name(),
                 as_int(topo.thin_deleted));
}

void report_orientation(const topo_ctx& topo)
{
    if (topo.components > 1)
        log_line("%s(WARNING): the number of disconnected components: %1d.\n", name(),
                 as_int(topo.components));
    if (topo.inconsistent != 0)
        log_line("%s(WARNING): the number of inconsistent triangle pairs: %1d.\n", name(),
                 as_int(topo.inconsistent));
    if (logs_info()) log_line("%s(info): removing degenerated triangles ...\n", name());
}

stage_result orient(std::int32_t* err, mesh_ctx* ctx)
{
    ctx->topo->orient_mode = 0;
    ctx->topo->orient_a = ctx->topo->orient_b = 1;
    return orient_components(ctx->topo, err, ctx);
}

} // namespace

stage_result build_topology(std::int32_t cycle, std::int32_t* err, mesh_ctx* ctx)
{
    if (!link_up(cycle, err, ctx)) return stage_failed;
    ctx->model->tri_with_3_nbrs = ctx->topo->tri_with_3_nbrs;
    if (cycle == 0) report_links(*ctx);
    if (!orient(err, ctx)) return stage_failed;
    label_tr_axes(ctx);
    ctx->model->tri_oriented = ctx->topo->tri_oriented;
    if (cycle == 0) report_orientation(*ctx->topo);
    if (!remove_degenerates_pass(static_cast<double>(merge_tol), err, ctx)) return stage_failed;
    return unless_torn(err);
}

} // namespace velmora
