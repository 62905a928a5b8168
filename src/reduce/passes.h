// reduce/passes.h - which vertices are tried, in which order, and where each may go.
//
// Each pass walks the table once, in table order (mode 4: in order of deviation). A vertex that
// went locks everything round it for the rest of the cycle, so nothing need be measured again; what
// a lock has held back, the next cycle finds.
#pragma once

#include "reduce/vtx_table.h"

#include <cstdint>

namespace velmora {

/// Removed vertices by kind, each counted once.
struct pass_counts {
    std::uint32_t line;
    std::uint32_t plane;
    std::uint32_t short_edge;
    std::uint32_t degen;
};

/// Locks the open boundary, keeps the grid, and runs the passes of the mode. Mode 4's own removals
/// are not counted. A move that can't be made is no failure.
void reduce_passes(vtx_table* table, const reduce_params& params, pass_counts* counts);

} // namespace velmora
