// reduce/params.h - the tolerances and the mode of a run, as the reduction reads them.
#pragma once

#include <cstdint>

namespace velmora {

enum reduce_mode : std::int32_t {
    mode_dist = 1,   ///< line and plane vertices within a distance tolerance
    mode_short = 2,  ///< vertices on short edges
    mode_max = 3,    ///< like 1, along the shortest edge, under a longest allowed edge
    mode_aspect = 4, ///< vertices of badly shaped triangles
};

constexpr double k_no_angle_limit = 2.0; ///< a cosine that no triangle reaches

/// One block per run. Distances are absolute; 0 means off where it says so.
struct reduce_params {
    double dist_tol;      ///< largest height of a neighbour over the tangent plane; 0 off
    double angle_tol;     ///< cosine: normals with at most this dot product meet in a sharp edge
    double min_angle_cos; ///< cosine: a triangle with a larger one is bad; k_no_angle_limit off
    double height_ratio;  ///< least height over longest edge; 0 off
    double max_edge;      ///< longest edge round a vertex after its removal; 0 off
    double min_edge;      ///< edges up to this length are collapsed in mode 2; 0 off
    double grid;          ///< step of the grid whose lines are kept; 0 off
    std::int32_t mode;    ///< reduce_mode; other values reduce nothing
};

} // namespace velmora
