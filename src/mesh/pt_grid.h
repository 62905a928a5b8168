// mesh/pt_grid.h - finds points that may be equal within merge_tol by the cells of a grid.
//
// Cells are some tolerances wide, so few points are near to a face, and few share a cell. Points
// that are close to each other have one cell, or neighbouring cells whose common face both are near
// to. Where a coordinate is so large that neighbouring floats are further apart than the tolerance,
// or where there is no tolerance, each value is a cell of its own. Where many points are close, the
// fine grid serves: its cells are hardly wider than the tolerance.
#pragma once

#include "mesh/tolerances.h"

#include <cmath>
#include <cstdint>
#include <cstring>

namespace velmora {

/// Width of a cell in tolerances.
constexpr double k_cell_tols = 16.0;

/// The float difference of two points may round down to the tolerance.
constexpr double k_reach_tols = 1.0 + 1e-6;

/// From here on neighbouring floats are further apart than the tolerance.
constexpr double k_far_cell = 1099511627776.0;

/// Covers the rounding of cell numbers below that bound.
constexpr double k_near_face = 1.0 / k_cell_tols + 1.0 / 1024.0;

struct pt_grid {
    double reach;    ///< points further apart than this on some axis are not close
    double per_cell; ///< cells per unit of length; 0 without a tolerance
};

/// The grid of merge_tol, which is finite and not negative.
inline pt_grid grid_of_tol()
{
    const double reach = static_cast<double>(merge_tol) * k_reach_tols;
    return {reach, reach > 0.0 ? 1.0 / (k_cell_tols * reach) : 0.0};
}

/// The same with cells so narrow that points in one are about as close as close points are. Points
/// that are close have one cell or neighbouring ones, whatever grid_cell::near says: a cell is
/// wider than the reach by more than the rounding of two cell numbers.
inline pt_grid fine_grid_of_tol()
{
    pt_grid grid = grid_of_tol();
    if (grid.reach > 0.0) grid.per_cell = 1.0 / (grid.reach * (1.0 + k_near_face / k_cell_tols));
    return grid;
}

struct grid_cell {
    std::int64_t at[3];
    int near[3]; ///< -1 or 1: close points may be in the next cell on this side
};

/// The cell of a coordinate that is one by itself; both zeros are one.
inline std::int64_t lone_cell(float x)
{
    if (x == 0.0f) return 0;
    std::uint32_t bits;
    std::memcpy(&bits, &x, sizeof bits);
    return static_cast<std::int64_t>(bits) + (std::int64_t{1} << 50);
}

inline grid_cell cell_of(const pt_grid& grid, const float* pos)
{
    grid_cell cell = {};
    for (int i = 0; i < 3; ++i) {
        const double s = static_cast<double>(pos[i]) * grid.per_cell;
        if (grid.per_cell == 0.0 || !(std::fabs(s) < k_far_cell)) {
            cell.at[i] = lone_cell(pos[i]);
            continue;
        }
        const std::int64_t cut = static_cast<std::int64_t>(s);
        cell.at[i] = static_cast<double>(cut) > s ? cut - 1 : cut;
        const double into = s - static_cast<double>(cell.at[i]);
        if (into < k_near_face) cell.near[i] = -1;
        if (into > 1.0 - k_near_face) cell.near[i] = 1;
    }
    return cell;
}

inline std::uint64_t hash_mix(std::uint64_t h, std::int64_t with)
{
    h = (h ^ static_cast<std::uint64_t>(with)) * 0x9E3779B97F4A7C15ull;
    return h ^ h >> 29;
}

inline std::uint32_t hash_end(std::uint64_t h)
{
    return static_cast<std::uint32_t>(h >> 20);
}

/// Hash of the cell that lies `d` cells further on.
inline std::uint32_t cell_hash(const grid_cell& cell, const int* d)
{
    const std::uint64_t h =
        hash_mix(hash_mix(hash_mix(0, cell.at[0] + d[0]), cell.at[1] + d[1]), cell.at[2] + d[2]);
    return hash_end(h);
}

/// Calls `look(hash)` for each cell in which a point close to one in `cell` may be, its own first,
/// until that returns false; then so does this.
template <class look_fn> bool for_each_close_cell(const grid_cell& cell, const look_fn& look)
{
    const int here[3] = {0, 0, 0};
    if (!look(cell_hash(cell, here))) return false;
    if ((cell.near[0] | cell.near[1] | cell.near[2]) == 0) return true;
    for (int corner = 1; corner < 8; ++corner) {
        int d[3];
        bool looks = true;
        for (int i = 0; i < 3; ++i) {
            d[i] = corner >> i & 1 ? cell.near[i] : 0;
            looks = looks && (d[i] != 0 || !(corner >> i & 1));
        }
        if (looks && !look(cell_hash(cell, d))) return false;
    }
    return true;
}

/// Calls `look(hash)` for a cell and the 26 around it.
template <class look_fn> void for_each_cell_around(const grid_cell& cell, const look_fn& look)
{
    for (int i = -1; i <= 1; ++i) {
        const std::uint64_t hx = hash_mix(0, cell.at[0] + i);
        for (int j = -1; j <= 1; ++j) {
            const std::uint64_t hxy = hash_mix(hx, cell.at[1] + j);
            for (int k = -1; k <= 1; ++k)
                look(hash_end(hash_mix(hxy, cell.at[2] + k)));
        }
    }
}

/// Whether two points may be equal within the tolerance.
inline bool are_close(const pt_grid& grid, const float* a, const float* b)
{
    for (int i = 0; i < 3; ++i)
        if (std::fabs(static_cast<double>(a[i]) - static_cast<double>(b[i])) > grid.reach)
            return false;
    return true;
}

} // namespace velmora
