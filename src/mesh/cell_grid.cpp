#include "mesh/cell_grid.h"

#include "mesh/memory.h"

#include <cstring>

namespace velmora {

namespace {

void halve(grid_axis* axis)
{
    for (std::uint32_t i = axis->count; i-- > 0;) {
        const float low = axis->bounds[i];
        const float high = axis->bounds[i + 1];
        axis->bounds[2 * i + 2] = high;
        axis->bounds[2 * i + 1] = cell_cut(low, high);
    }
    axis->count *= 2;
}

void make_axes(const aabb& cell, std::uint32_t first, std::uint32_t levels, cell_grid* grid)
{
    for (int i = 0; i < 3; ++i) {
        grid->axes[i].bounds[0] = cell.min[i];
        grid->axes[i].bounds[1] = cell.max[i];
        grid->axes[i].count = 1;
    }
    for (std::uint32_t l = first; l < first + levels; ++l)
        halve(&grid->axes[l % 3]);
    for (grid_axis& axis : grid->axes) {
        const double length =
            static_cast<double>(axis.bounds[axis.count]) - static_cast<double>(axis.bounds[0]);
        axis.per_length = length > 0.0 ? axis.count / length : 0.0;
    }
}

cell_range cells_of(const grid_axis& axis, float min, float max)
{
    const double way = static_cast<double>(min) - static_cast<double>(axis.bounds[0]);
    const double guess = way * axis.per_length;
    const double most = axis.count - 1;
    auto first = static_cast<std::uint32_t>(guess > 0.0 ? guess < most ? guess : most : 0.0);
    while (first > 0 && !(min > axis.bounds[first]))
        --first;
    while (first + 1 < axis.count && min > axis.bounds[first + 1])
        ++first;
    std::uint32_t last = first;
    while (last + 1 < axis.count && !(axis.bounds[last + 1] > max))
        ++last;
    return {first, last};
}

// Counts one more from the cell on where a block begins, and takes that back where it is over along
// some axes: summed up, the counts are those of the cells.
void note_corner(const cell_block& block, int corner, const cell_grid& grid)
{
    const std::uint32_t x = corner & 1 ? block.x.last + 1 : block.x.first;
    const std::uint32_t y = corner & 2 ? block.y.last + 1 : block.y.first;
    const std::uint32_t z = corner & 4 ? block.z.last + 1 : block.z.first;
    if (x == grid.axes[0].count || y == grid.axes[1].count || z == grid.axes[2].count) return;
    const bool taken = (corner & 1) ^ (corner >> 1 & 1) ^ (corner >> 2 & 1);
    grid.counts[cell_at(grid, x, y, z)] += taken ? ~0u : 1u;
}

// Sums up along one axis, on which neighbours are `stride` apart.
void sum_along(const cell_grid& grid, std::uint32_t stride, std::uint32_t length)
{
    const std::uint32_t cells = cell_count(grid);
    for (std::uint32_t block = 0; block < cells; block += stride * length)
        for (std::uint32_t i = block + stride; i < block + stride * length; ++i)
            grid.counts[i] += grid.counts[i - stride];
}

} // namespace

bool cell_grid_open(const aabb& cell, std::uint32_t first, std::uint32_t levels, cell_grid* grid)
{
    make_axes(cell, first, levels, grid);
    const std::uint32_t cells = cell_count(*grid);
    grid->counts = heap_array<std::uint32_t>(cells);
    if (grid->counts) std::memset(grid->counts, 0, sizeof(std::uint32_t) * cells);
    return grid->counts != nullptr;
}

void cell_grid_close(cell_grid* grid)
{
    heap_free(grid->counts);
    grid->counts = nullptr;
}

cell_block cells_of(const cell_grid& grid, const aabb& box)
{
    return {cells_of(grid.axes[0], box.min[0], box.max[0]),
            cells_of(grid.axes[1], box.min[1], box.max[1]),
            cells_of(grid.axes[2], box.min[2], box.max[2])};
}

void note_block(const cell_block& block, const cell_grid& grid)
{
    for (int corner = 0; corner < 8; ++corner)
        note_corner(block, corner, grid);
}

void sum_up_blocks(const cell_grid& grid)
{
    const std::uint32_t row = grid.axes[0].count;
    const std::uint32_t layer = row * grid.axes[1].count;
    sum_along(grid, 1, row);
    sum_along(grid, row, grid.axes[1].count);
    sum_along(grid, layer, grid.axes[2].count);
}

} // namespace velmora
