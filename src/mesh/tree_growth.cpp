#include "mesh/tree_growth.h"

#include "mesh/cell_grid.h"
#include "mesh/cell_tree.h"

#include <algorithm>
#include <cstring>

namespace velmora {

namespace {

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
std::uint32_t count_box(const aabb& box, const cell_grid& grid)
{
    const cell_block block = cells_of(grid, box);
    std::uint32_t most = 0;
    for (std::uint32_t k = block.z.first; k <= block.z.last; ++k)
        for (std::uint32_t j = block.y.first; j <= block.y.last; ++j)
            for (std::uint32_t i = block.x.first; i <= block.x.last; ++i) {
                const std::uint32_t n = ++grid.counts[cell_at(grid, i, j, k)];
                if (n > most) most = n;
            }
    return most;
}

level_count count_one_by_one(const insertions& in, std::uint32_t limit, const cell_grid& grid)
{
    level_count level = {-1, 0};
    for (std::uint32_t i = 0; i < in.stored; ++i) {
        const std::uint32_t length = count_box(in.boxes[in.stream[i]], grid);
        if (length <= level.longest) continue;
        level.longest = length;
        if (length > limit && level.overflow < 0) level.overflow = in.stream[i];
    }
    return level;
}

// ---- where boxes are large

// The longest list after the first `count` objects.
std::uint32_t longest_after(std::uint32_t count, const insertions& in, const cell_grid& grid)
{
    const std::uint32_t cells = cell_count(grid);
    std::memset(grid.counts, 0, sizeof(std::uint32_t) * cells);
    for (std::uint32_t i = 0; i < count; ++i)
        note_block(cells_of(grid, in.boxes[in.stream[i]]), grid);
    sum_up_blocks(grid);
    return *std::max_element(grid.counts, grid.counts + cells);
}

// The same as one by one: the longest list never gets shorter, so that the first that is too long
// is found by halving.
level_count count_by_halving(const insertions& in, std::uint32_t limit, const cell_grid& grid)
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
bool boxes_are_large(const insertions& in, const cell_grid& grid)
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
    cell_grid grid;
    if (!cell_grid_open(root, 0, level, &grid)) return false;
    *counted = boxes_are_large(in, grid) ? count_by_halving(in, limit, grid)
                                         : count_one_by_one(in, limit, grid);
    cell_grid_close(&grid);
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
