// mesh/tree_growth.h - foretells when the limits of the tree will grow.
//
// The limits grow by one step before an insertion when some list has become too long, which only
// the list of a leaf at the level limit can. All such leaves together are a regular grid, and which
// of its cells an object touches needs no tree: so counting objects by cells, in the order of
// insertion, tells when the first list gets too long. Then the same goes on one level deeper.
#pragma once

#include "mesh/context.h"

namespace velmora {

constexpr std::uint32_t k_most_steps = 32; ///< the level limit can't grow more often

/// The limits of the tree while one object after the other is inserted.
struct tree_limits {
    std::uint32_t max_level[k_most_steps + 1]; ///< at first, and after each step
    std::uint32_t max_list[k_most_steps + 1];
    std::int64_t times[k_most_steps]; ///< number of the last insertion before each step; -1 none
    std::uint32_t steps;
    bool all_known;        ///< there are no further steps
    std::uint32_t longest; ///< all_known: held against the grow limit as the longest list would be
};

/// How many of the steps come before an insertion, of which `step` are known to.
inline std::uint32_t steps_before(std::uint32_t number, const tree_limits& limits,
                                  std::uint32_t step = 0)
{
    while (step < limits.steps && limits.times[step] < number)
        ++step;
    return step;
}

/// The limits as they stand, with the steps alone that lists of earlier times still cause.
void start_limits(const mesh_ctx& ctx, std::uint32_t count, tree_limits* limits);

/// Adds all further steps of the insertion of boxes[0], boxes[1] ... up to `count` into the root,
/// which is an empty leaf with a box of finite numbers. Only what is in `stream`, `stored` numbers
/// in ascending order, is stored; the others are refused.
/// @return false when memory ran out
[[nodiscard]] bool foretell_growth(const aabb* boxes, std::uint32_t count,
                                   const std::uint32_t* stream, std::uint32_t stored,
                                   const mesh_ctx& ctx, tree_limits* limits);

} // namespace velmora
