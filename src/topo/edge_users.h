// topo/edge_users.h - the users of an edge without reading the lists of leaves for them.
//
// Lists may be as long as the model. But the table of sides knows who has an edge, and an object
// stands in every leaf that its box touches. So only the order of several users in one leaf is
// wanted of its list: for that it is read once, and the places of all that it lists are noted.
#pragma once

#include "mesh/cell_tree.h"
#include "mesh/checked.h"
#include "repair/edge_groups.h"

#include <cstdint>

namespace velmora {

/// The table of sides, and the places in one leaf's list; all zero knows nothing.
struct user_lookup {
    const edge_groups* sides; ///< null: lists have to be read
    std::uint32_t leaf;       ///< serial number of the one whose places are noted; 0 none
    std::uint32_t* places;    ///< by object; owned
};

constexpr std::uint32_t k_most_users = 63;                ///< on an edge that a lookup serves
constexpr std::uint32_t k_long_list = bound_or(256u, 2u); ///< shorter ones are soon read

/// Some users of an edge, in an order that the function tells.
struct edge_users {
    obj_h objs[k_most_users];
    std::uint32_t count;
};

/// A lookup for as long as neither corners nor the tree change but by unfolding. It knows nothing
/// when the table is not in order, or the tree's cells are not halves of each other.
user_lookup user_lookup_open(const edge_groups& sides, const mesh_ctx& ctx);

void user_lookup_close(user_lookup* lookup);

/// All users of the edge between two vertices, in no order that means anything.
/// @return false when they are not known, are more than there is room for, or one has a box that
///         holds nothing
[[nodiscard]] bool find_users(const user_lookup& lookup, vtx_h a, vtx_h b, edge_users* users);

/// Those of `users` that the leaf lists, in list order.
void users_in_leaf(const edge_users& users, const cell_node& leaf, user_lookup* lookup,
                   edge_users* listed);

/// Those of `users` whose boxes touch `box`, in the order in which a walk over the leaves that
/// touch it meets them. `box` holds something.
/// @return false when memory ran out; those found until then stay
[[nodiscard]] bool users_on_walk(const edge_users& users, const aabb& box, const mesh_ctx& ctx,
                                 user_lookup* lookup, edge_users* met);

} // namespace velmora
