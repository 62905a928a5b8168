#include "reduce/classify.h"

#include "mesh/vec.h"
#include "reduce/normals.h"

#include <climits>

namespace velmora {

namespace {

constexpr double k_grid_dist = k_plane_eps; ///< does not follow merge_tol

// Least dot product of neighbouring normals round the fan. Degenerate triangles are passed over,
// but the last one of the fan stands for the first one's predecessor whatever it is.
double fan_bend(const vtx_fan& fan)
{
    double least = 1.0;
    if (fan.count == 0) return least;
    const float* prev = rec(fan.first[fan.count - 1]).nrm;
    for (const tr_h t : fan) {
        const tr_rec& tr = rec(t);
        if (tr.flags & tr_no_nrm) continue;
        const double d = vec_dot(tr.nrm, prev);
        if (d < least) least = d;
        prev = tr.nrm;
    }
    return least;
}

bool points_along(const float* nrm, int axis)
{
    float unit[3] = {0.0f, 0.0f, 0.0f};
    unit[axis] = 1.0f;
    if (pts_equal(nrm, unit)) return true;
    unit[axis] = -1.0f;
    return pts_equal(nrm, unit);
}

// The quotient as the processor truncates it: out of range and NaN become the smallest.
double truncated(double q)
{
    const bool fits =
        q > static_cast<double>(INT_MIN) - 1.0 && q < static_cast<double>(INT_MAX) + 1.0;
    return static_cast<double>(fits ? static_cast<int>(q) : INT_MIN);
}

bool on_grid_plane(double c, double grid)
{
    const double q = c / grid;
    const double n = truncated(q);
    if (n == q) return true;
    return std::fabs(c - (n - 1.0) * grid) <= k_grid_dist ||
           std::fabs(c - n * grid) <= k_grid_dist || std::fabs(c - (n + 1.0) * grid) <= k_grid_dist;
}

} // namespace

void vtx_classify_all(vtx_table* table, const reduce_params& params)
{
    const bool aspect = params.mode == mode_aspect;
    for (std::uint32_t i = 0; i < table->count; ++i) {
        vtx_info& info = table->infos[i];
        if (aspect && table->types[i] != vtx_open) table->types[i] = vtx_unset;
        get_nrm4vtx(*table, &info);
        info.fan_dot_min = table->types[i] == vtx_unset ? 1.0 : fan_bend(fan_of(*table, info));
        vec_set(info.moved, 0.0f, 0.0f, 0.0f);
        if (!aspect) vec_copy(rec(info.vtx).pos, info.moved);
    }
}

bool vtx_on_grid_line(double grid, const vtx_info& info)
{
    int planes = 0;
    for (int k = 0; k < 3; ++k) {
        if (points_along(info.nrm, k)) continue;
        if (on_grid_plane(static_cast<double>(rec(info.vtx).pos[k]), grid)) ++planes;
    }
    return planes >= 2;
}

} // namespace velmora
