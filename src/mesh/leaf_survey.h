// mesh/leaf_survey.h - all leaves below a folded cell together.
#pragma once

#include "mesh/leaf_cell.h"

namespace velmora {

/// Notes all leaves below a folded cell with that path in the map, by counting on the grid of each
/// level what its stream makes of the cells. Where there is no memory for that, some are left out.
void survey_leaves(const cell_node& node, std::uint32_t path, leaf_map* map);

} // namespace velmora
