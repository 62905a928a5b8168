#include "mesh/tree_growth.h"

#include "mesh/cell_tree.h"

#include <algorithm>
#include <cstring>

namespace velmora {

namespace {

constexpr std::uint32_t k_most_cuts = 1u << ((k_deepest_level + 2) / 3); ///< cells along one axis

// The cells of one level along one axis: cell i reaches from bounds[i] to bounds[i + 1].
struct grid_axis {
    float bounds[k_most_cuts + 1];
    std::uint32_t count;
    double per_length; // cells per unit of length, for a first guess
};

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

struct level_grid {
    grid_axis axes[3];
    std::uint32_t* counts; // objects that touch each cell; owned
};

std::uint32_t cell_count(const level_grid& grid)
{
    return grid.axes[0].count * grid.axes[1].count * grid.axes[2].count;
}

void make_axes(const aabb& root, std::uint32_t level, level_grid* grid)
{
    for (int i = 0; i < 3; ++i) {
        grid->axes[i].bounds[0] = root.min[i];
        grid->axes[i].bounds[1] = root.max[i];
        grid->axes[i].count = 1;
    }
    for (std::uint32_t l = 0; l < level; ++l)
        halve(&grid->axes[l % 3]);
    for (grid_axis& axis : grid->axes) {
        const double length =
            static_cast<double>(axis.bounds[axis.count]) - static_cast<double>(axis.bounds[0]);
        axis.per_length = length > 0.0 ? axis.count / length : 0.0;
    }
}

struct cell_range {
    std::uint32_t first;
    std::uint32_t last;
};

// The cells that [min, max] touches; it touches at least one.
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

struct cell_block {
    cell_range x, y, z;
};

cell_block cells_of(const level_grid& grid, const aabb& box)
{
    return {cells_of(grid.axes[0], box.min[0], box.max[0]),
            cells_of(grid.axes[1], box.min[1], box.max[1]),
            cells_of(grid.axes[2], box.min[2], box.max[2])};
}

std::uint64_t size_of(const cell_range& r)
{
    return r.last - r.first + std::uint64_t{1};
}

// The objects that are stored, in the order of insertion.
struct insertions {
    const aabb* boxes;
    const std::uint32_t* stream;
    std::uint32_t stored;
};

// What counting one level tells.
struct level_count {
    std::int64_t overflow; // the insertion that makes a list longer than the limit; -1 none
    std::uint32_t longest; // list of all, if there were no limit
};

// Counts an object in the cells that it touches; returns the largest of their counts.
std::uint32_t count_box(const aabb& box, const level_grid& grid)
{
    const cell_block block = cells_of(grid, box);
    std::uint32_t most = 0;
    for (std::uint32_t k = block.z.first; k <= block.z.last; ++k)
        for (std::uint32_t j = block.y.first; j <= block.y.last; ++j)
            for (std::uint32_t i = block.x.first; i <= block.x.last; ++i) {
                const std::uint32_t row = k * grid.axes[1].count + j;
                const std::uint32_t n = ++grid.counts[row * grid.axes[0].count + i];
                if (n > most) most = n;
            }
    return most;
}

level_count count_one_by_one(const insertions& in, std::uint32_t limit, const level_grid& grid)
{
    level_count level = {-1, 0};
    std::memset(grid.counts, 0, sizeof(std::uint32_t) * cell_count(grid));
    for (std::uint32_t i = 0; i < in.stored; ++i) {
        const std::uint32_t length = count_box(in.boxes[in.stream[i]], grid);
        if (length <= level.longest) continue;
        level.longest = length;
        if (length > limit && level.overflow < 0) level.overflow = in.stream[i];
    }
    return level;
}

// ---- where boxes are large

// Counts one more from the cell on where a block begins, and takes that back where it is over along
// some axes: summed up, the counts are those of the cells.
void add_corner(const cell_block& block, int corner, const level_grid& grid)
{
    const std::uint32_t x = corner & 1 ? block.x.last + 1 : block.x.first;
    const std::uint32_t y = corner & 2 ? block.y.last + 1 : block.y.first;
    const std::uint32_t z = corner & 4 ? block.z.last + 1 : block.z.first;
    if (x == grid.axes[0].count || y == grid.axes[1].count || z == grid.axes[2].count) return;
    const bool taken = (corner & 1) ^ (corner >> 1 & 1) ^ (corner >> 2 & 1);
    grid.counts[(z * grid.axes[1].count + y) * grid.axes[0].count + x] += taken ? ~0u : 1u;
}

// Sums up along one axis, on which neighbours are `stride` apart.
void sum_along(const level_grid& grid, std::uint32_t stride, std::uint32_t length)
{
    const std::uint32_t cells = cell_count(grid);
    for (std::uint32_t block = 0; block < cells; block += stride * length)
        for (std::uint32_t i = block + stride; i < block + stride * length; ++i)
            grid.counts[i] += grid.counts[i - stride];
}

// The longest list after the first `count` objects.
std::uint32_t longest_after(std::uint32_t count, const insertions& in, const level_grid& grid)
{
    const std::uint32_t cells = cell_count(grid);
    const std::uint32_t row = grid.axes[0].count;
    const std::uint32_t layer = row * grid.axes[1].count;
    std::memset(grid.counts, 0, sizeof(std::uint32_t) * cells);
    for (std::uint32_t i = 0; i < count; ++i) {
        const cell_block block = cells_of(grid, in.boxes[in.stream[i]]);
        for (int corner = 0; corner < 8; ++corner)
            add_corner(block, corner, grid);
    }
    sum_along(grid, 1, row);
    sum_along(grid, row, grid.axes[1].count);
    sum_along(grid, layer, grid.axes[2].count);
    return *std::max_element(grid.counts, grid.counts + cells);
}

// The same as one by one: the longest list never gets shorter, so that the first that is too long
// is found by halving.
level_count count_by_halving(const insertions& in, std::uint32_t limit, const level_grid& grid)
{
    const level_count level = {-1, longest_after(in.stored, in, grid)};
    if (level.longest <= limit) return level;
    std::uint32_t fits = limit;
    std::uint32_t overflows = in.stored;
    while (overflows - fits > 1) {
        const std::uint32_t mid = fits + (overflows - fits) / 2;
        (longest_after(mid, in, grid) > limit ? overflows : fits) = mid;
    }
    return {in.stream[overflows - 1], level.longest};
}

// Whether halving is less work, by some boxes from everywhere.
bool boxes_are_large(const insertions& in, const level_grid& grid)
{
    constexpr std::uint64_t k_halvings = 20;
    constexpr std::uint64_t k_passes = 4; // over all cells, for each of them
    constexpr std::uint64_t k_corners = 8;
    constexpr std::uint32_t k_samples = 4096;
    const std::uint32_t step = in.stored / k_samples + 1;
    std::uint64_t touched = 0;
    for (std::uint32_t i = 0; i < in.stored; i += step) {
        const cell_block block = cells_of(grid, in.boxes[in.stream[i]]);
        touched += size_of(block.x) * size_of(block.y) * size_of(block.z) * step;
    }
    return touched > k_halvings * (k_passes * cell_count(grid) + k_corners * in.stored);
}

void add_step(std::int64_t time, tree_limits* limits)
{
    const std::uint32_t s = limits->steps++;
    limits->times[s] = time;
    limits->max_level[s + 1] = limits->max_level[s] + 1;
    limits->max_list[s + 1] = limits->max_list[s] * 2;
}

// A list that got too long earlier: the limits still grow, a step with each insertion.
void add_steps_due(std::uint32_t longest, std::uint32_t count, tree_limits* limits)
{
    for (std::int64_t k = 0; k < count; ++k) {
        const std::uint32_t s = limits->steps;
        if (limits->max_level[s] >= k_deepest_level) return;
        if (longest <= tree_grow_limit(limits->max_list[s])) return;
        add_step(k - 1, limits);
    }
}

} // namespace

void start_limits(const mesh_ctx& ctx, std::uint32_t count, tree_limits* limits)
{
    limits->steps = 0;
    limits->all_known = false;
    limits->longest = 0;
    limits->max_level[0] = ctx.max_level;
    limits->max_list[0] = ctx.max_list;
    add_steps_due(ctx.longest_list, count, limits);
}

// False when memory ran out.
static bool count_level(const insertions& in, std::uint32_t level, std::uint32_t limit,
                        const aabb& root, level_count* counted)
{
    level_grid grid;
    make_axes(root, level, &grid);
    grid.counts = heap_array<std::uint32_t>(cell_count(grid));
    if (!grid.counts) return false;
    *counted = boxes_are_large(in, grid) ? count_by_halving(in, limit, grid)
                                         : count_one_by_one(in, limit, grid);
    heap_free(grid.counts);
    return true;
}

bool foretell_growth(const aabb* boxes, std::uint32_t count, const std::uint32_t* stream,
                     std::uint32_t stored, const mesh_ctx& ctx, tree_limits* limits)
{
    limits->all_known = true;
    while (limits->max_level[limits->steps] < k_deepest_level) {
        const std::uint32_t limit = tree_grow_limit(limits->max_list[limits->steps]);
        if (stored <= limit) return true;
        level_count lists;
        if (!count_level({boxes, stream, stored}, limits->max_level[limits->steps], limit,
                         rec(ctx.root).box, &lists))
            return false;
        limits->longest = lists.longest;
        if (lists.overflow < 0 || lists.overflow + 1 >= std::int64_t{count}) return true;
        add_step(lists.overflow, limits);
        // One level deeper no list gets longer.
        if (lists.longest <= tree_grow_limit(limits->max_list[limits->steps])) return true;
    }
    return true;
}

} // namespace velmora
