// run/run_state.h - the records that exist once per run, and their making and clearing away.
#pragma once

#include "mesh/context.h"
#include "reduce/params.h"
#include "reduce/vtx_table.h"
#include "repair/edge_groups.h"

namespace velmora {

/// Everything that a run holds besides its options.
struct run_state {
    mesh_ctx mesh;
    model_ctx model;
    topo_ctx topo;
    edge_groups sides;
    reduce_params params;
    vtx_table table;
};

/// The records of this process' run.
extern run_state the_run;

/// Option defaults, empty records, all linked.
void init_run();

/// Tolerances and streams from the options.
/// @return false after a complaint in the log
[[nodiscard]] bool init_io();

/// Closes the input, and gives back all that the run still holds.
void free_run();

} // namespace velmora
