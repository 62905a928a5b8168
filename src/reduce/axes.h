// reduce/axes.h - which triangles lie square to an axis, and which vertices on the rim of such
// faces.
#pragma once

#include "mesh/context.h"
#include "reduce/vtx_table.h"

namespace velmora {

/// Gives every unlabelled triangle its plane_class; a label stays whatever becomes of the normal.
void label_tr_axes(mesh_ctx* ctx);

constexpr int k_all_one_axis = -1; ///< every fan triangle is labelled, all square to one axis
constexpr int k_no_axis = 0;

/// How a vertex lies to axis-square faces: k_no_axis, k_all_one_axis, or the label of the face on
/// whose rim it lies.
int fan_axis_label(const vtx_fan& fan);

} // namespace velmora
