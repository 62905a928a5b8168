#include "mesh/tree_growth.h"

#include "mesh/cell_tree.h"

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

// Counts an object in the cells that it touches; returns the largest of their counts.
std::uint32_t count_box(const aabb& box, const level_grid& grid)
{
    const cell_range x = cells_of(grid.axes[0], box.min[0], box.max[0]);
    const cell_range y = cells_of(grid.axes[1], box.min[1], box.max[1]);
    const cell_range z = cells_of(grid.axes[2], box.min[2], box.max[2]);
    std::uint32_t most = 0;
    for (std::uint32_t k = z.first; k <= z.last; ++k)
        for (std::uint32_t j = y.first; j <= y.last; ++j)
            for (std::uint32_t i = x.first; i <= x.last; ++i) {
                const std::uint32_t row = k * grid.axes[1].count + j;
                const std::uint32_t n = ++grid.counts[row * grid.axes[0].count + i];
                if (n > most) most = n;
            }
    return most;
}

// What counting one level tells.
struct level_count {
    std::int64_t
        overflow; // number of the insertion that makes a list longer than the limit; -1 none
    std::uint32_t longest; // list of all, if there were no limit
};

level_count count_level(const aabb* boxes, const std::uint32_t* stream, std::uint32_t stored,
                        std::uint32_t limit, const level_grid& grid)
{
    level_count level = {-1, 0};
    for (std::uint32_t i = 0; i < stored; ++i) {
        const std::uint32_t length = count_box(boxes[stream[i]], grid);
        if (length <= level.longest) continue;
        level.longest = length;
        if (length > limit && level.overflow < 0) level.overflow = stream[i];
    }
    return level;
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
    limits->max_level[0] = ctx.max_level;
    limits->max_list[0] = ctx.max_list;
    add_steps_due(ctx.longest_list, count, limits);
}

bool foretell_growth(const aabb* boxes, std::uint32_t count, const std::uint32_t* stream,
                     std::uint32_t stored, const mesh_ctx& ctx, tree_limits* limits)
{
    limits->all_known = true;
    while (limits->max_level[limits->steps] < k_deepest_level) {
        const std::uint32_t level = limits->max_level[limits->steps];
        const std::uint32_t limit = tree_grow_limit(limits->max_list[limits->steps]);
        if (stored <= limit) return true;
        level_grid grid;
        make_axes(rec(ctx.root).box, level, &grid);
        const std::size_t size = sizeof(std::uint32_t) << level;
        grid.counts = static_cast<std::uint32_t*>(heap_alloc(size));
        if (!grid.counts) return false;
        std::memset(grid.counts, 0, size);
        const level_count lists = count_level(boxes, stream, stored, limit, grid);
        heap_free(grid.counts);
        if (lists.overflow < 0 || lists.overflow + 1 >= std::int64_t{count}) return true;
        add_step(lists.overflow, limits);
        // One level deeper no list gets longer.
        if (lists.longest <= tree_grow_limit(limits->max_list[limits->steps])) return true;
    }
    return true;
}

} // namespace velmora
