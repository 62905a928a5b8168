#include "reduce/axes.h"

#include "mesh/cell_tree.h"
#include "mesh/vec.h"

namespace velmora {

static constexpr double k_axis_cos = 0.9999; ///< cosine of the angle to the axis, exclusive

// An axis' two labels are 100 (axis + 1), and one more for the negative direction.
static constexpr int k_labels_per_axis = 100;

static std::int16_t axis_label(const float* nrm)
{
    int label = 0;
    for (int axis = 0; axis < 3; ++axis) {
        for (int negative = 0; negative < 2; ++negative) {
            float unit[3] = {0.0f, 0.0f, 0.0f};
            unit[axis] = negative ? -1.0f : 1.0f;
            if (vec_dot(nrm, unit) > k_axis_cos) label = k_labels_per_axis * (axis + 1) + negative;
        }
    }
    return static_cast<std::int16_t>(label);
}

void label_tr_axes(mesh_ctx* ctx)
{
    for_each_obj_once(ctx, [](obj_h, cell_obj& obj) {
        tr_rec& tr = rec(obj.tr);
        if (tr.plane_class == 0) tr.plane_class = axis_label(tr.nrm);
        return true;
    });
}

int fan_axis_label(const vtx_fan& fan)
{
    int first = 0;
    bool unlabelled = false;
    for (const tr_h t : fan) {
        const int label = rec(t).plane_class;
        if (label == 0) {
            unlabelled = true;
        } else if (first == 0) {
            first = label;
            continue;
        }
        if (label / k_labels_per_axis != first / k_labels_per_axis) return first;
    }
    return unlabelled || first == 0 ? k_no_axis : k_all_one_axis;
}

} // namespace velmora
