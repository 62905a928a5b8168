// reduce/classify.h - what kind of place a vertex is in: flat or on a crease, on the grid or not.
#pragma once

#include "reduce/vtx_table.h"

namespace velmora {

/// Corrects all normals, measures how sharply each fan is bent (fan_dot_min) and starts `moved`
/// anew. In mode 4 the types are reset first: open vertices stay open, all others become unset.
void vtx_classify_all(vtx_table* table, const reduce_params& params);

/// Whether at least two coordinates of the vertex lie on planes of the grid, not counting an axis
/// that its normal points along: the vertex then lies on a grid line.
bool vtx_on_grid_line(double grid, const vtx_info& info);

} // namespace velmora
