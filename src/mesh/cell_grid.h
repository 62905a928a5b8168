// mesh/cell_grid.h - how many boxes touch each cell of one level of the tree.
//
// All cells of one level below a cell are a regular grid, and which of them a box touches needs no
// tree.
#pragma once

#include "mesh/cell_tree.h"

#include <cstdint>

namespace velmora {

constexpr std::uint32_t k_most_cuts = 1u << ((k_deepest_level + 2) / 3); ///< cells along one axis

/// The cells along one axis: cell i reaches from bounds[i] to bounds[i + 1].
struct grid_axis {
    float bounds[k_most_cuts + 1];
    std::uint32_t count;
    double per_length; ///< cells per unit of length, for a first guess
};

struct cell_grid {
    grid_axis axes[3];
    std::uint32_t* counts; ///< by place, see cell_at; owned
};

/// The cells that `levels` levels of halving make of a cell of level `first`. All counts are 0.
/// @return false when memory ran out; nothing is held then
[[nodiscard]] bool cell_grid_open(const aabb& cell, std::uint32_t first, std::uint32_t levels,
                                  cell_grid* grid);

void cell_grid_close(cell_grid* grid);

inline std::uint32_t cell_count(const cell_grid& grid)
{
    return grid.axes[0].count * grid.axes[1].count * grid.axes[2].count;
}

/// The place of a cell in `counts`.
inline std::uint32_t cell_at(const cell_grid& grid, std::uint32_t x, std::uint32_t y,
                             std::uint32_t z)
{
    return (z * grid.axes[1].count + y) * grid.axes[0].count + x;
}

struct cell_range {
    std::uint32_t first;
    std::uint32_t last;
};

inline std::uint64_t size_of(const cell_range& r)
{
    return r.last - r.first + std::uint64_t{1};
}

struct cell_block {
    cell_range x, y, z;
};

/// The cells that a box touches, which touches at least one.
cell_block cells_of(const cell_grid& grid, const aabb& box);

/// Notes a block where it begins and ends; once all are noted, sum_up_blocks makes of this how many
/// of them each cell is in.
void note_block(const cell_block& block, const cell_grid& grid);
void sum_up_blocks(const cell_grid& grid);

} // namespace velmora
