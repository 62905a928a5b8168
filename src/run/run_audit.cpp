#include "run/run_audit.h"

#ifdef VELMORA_CHECKED

#include "mesh/audit.h"
#include "mesh/log.h"
#include "reduce/vtx_table.h"
#include "topo/edge_tbl.h"

#include <cstdio>
#include <cstdlib>

namespace velmora {

static void audit_topo(count_audit* audit, const topo_ctx& topo)
{
    audit_list(audit, topo.edge_err_list);
    audit_list(audit, topo.lone_list);
    edge_tbl_audit(audit, topo.edge_errs);
    for (std::uint32_t i = 0; i < topo.table->count; ++i)
        audit_vtx(audit, topo.table->infos[i].vtx);
}

void audit_run(const char* stage, const mesh_ctx* ctx)
{
    count_audit audit;
    if (!audit_open(&audit, ctx)) return;
    audit_topo(&audit, *ctx->topo);
    if (audit_close(&audit, stderr) == 0) return;
    log_line("audit: wrong counts after %s\n", stage);
    log_flush();
    std::abort();
}

} // namespace velmora

#else

namespace velmora {

void audit_run(const char*, const mesh_ctx*)
{
}

} // namespace velmora

#endif
