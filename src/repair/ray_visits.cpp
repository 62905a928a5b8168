#include "repair/ray_visits.h"

#include "mesh/box.h"
#include "mesh/memory.h"

#include <cstring>

namespace velmora {

namespace {

std::uint32_t both(std::uint32_t a, std::uint32_t b)
{
    if (a == 0 || b == 0) return a + b;
    return a == b ? a : k_many_seeds;
}

bool is_visited_leaf(const ray_visits& visits, std::uint32_t path)
{
    const std::uint32_t low = 2 * path;
    return low >= visits.end || (visits.seeds[low] == 0 && visits.seeds[low + 1] == 0);
}

bool visited_below(const ray_visits& visits, const leaf_cell& cell, std::uint32_t level, obj_h obj)
{
    const std::uint32_t seeds = visits.seeds[cell.path];
    if (seeds == 0 || seeds == obj.i || !box_overlap(cell.box, rec(obj).box)) return false;
    if (is_visited_leaf(visits, cell.path)) return true;
    return visited_below(visits, half_cell(cell, level, false), level + 1, obj) ||
           visited_below(visits, half_cell(cell, level, true), level + 1, obj);
}

} // namespace

bool ray_visits_open(std::uint32_t max_level, ray_visits* visits)
{
    const std::uint32_t end = leaf_path_end(max_level);
    *visits = {heap_array<std::uint32_t>(end), end};
    if (visits->seeds) std::memset(visits->seeds, 0, sizeof(std::uint32_t) * std::size_t{end});
    return visits->seeds != nullptr;
}

void ray_visits_close(ray_visits* visits)
{
    heap_free(visits->seeds);
    *visits = {};
}

void sum_up_visits(ray_visits* visits)
{
    for (std::uint32_t path = visits->end / 2; path-- > 1;) {
        const std::uint32_t* const halves = visits->seeds + 2 * std::size_t{path};
        if (visits->seeds[path] == 0) visits->seeds[path] = both(halves[0], halves[1]);
    }
}

bool visited_by_others(const ray_visits& visits, node_h root, obj_h obj)
{
    return visited_below(visits, {rec(root).box, 1}, 0, obj);
}

} // namespace velmora
