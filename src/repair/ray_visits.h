// repair/ray_visits.h - who has come by which leaf.
//
// A ray gives all that its leaves list a normal, but its own seed. Leaves may be folded and lists
// long, so with an index this is put off: a triangle gets its normal when a ray looks at it, and at
// the end if some ray other than its own has come by one of its leaves.
#pragma once

#include "mesh/leaf_cell.h"

#include <cstdint>

namespace velmora {

constexpr std::uint32_t k_many_seeds = 0xFFFFFFFFu;

struct ray_visits {
    /// By path of a leaf: 0 nobody, the number of the one object whose rays have come, or
    /// k_many_seeds. Owned.
    std::uint32_t* seeds;
    std::uint32_t end;
};

/// No visits yet, in a tree with that level limit.
/// @return false when memory ran out; nothing is held then
[[nodiscard]] bool ray_visits_open(std::uint32_t max_level, ray_visits* visits);

void ray_visits_close(ray_visits* visits);

/// Has the cells above the leaves tell who has come by below them: for visited_by_others, after the
/// last visit.
void sum_up_visits(ray_visits* visits);

/// Whether rays of other objects have come by a leaf that lists this one.
bool visited_by_others(const ray_visits& visits, node_h root, obj_h obj);

} // namespace velmora
