// run/run_audit.h - checked builds recount all holders of the mesh between the stages of a run.
#pragma once

#include "mesh/context.h"

namespace velmora {

/// Compares the counts of all records with what the tree and the run's lists and tables hold. A
/// wrong count is told in the log and ends the process. Nothing in builds without VELMORA_CHECKED,
/// and when there is no memory for it.
/// @param stage  what has just been done, for the log
void audit_run(const char* stage, const mesh_ctx* ctx);

} // namespace velmora
