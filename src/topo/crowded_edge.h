// topo/crowded_edge.h - the users of a crowded edge in the order in which a leaf lists them.
//
// A search for a partner across an edge takes the first free user in list order, and every user
// before that one is an error which has to be counted. With thousands of users on one edge most
// searches pass thousands of them. Kept in order, with the next free one known, they need not be
// passed one by one.
#pragma once

#include "mesh/cell_tree.h"
#include "mesh/checked.h"
#include "mesh/measure.h"
#include "mesh/records.h"

#include <cstdint>

namespace velmora {

/// From this many users on an edge is worth the trouble.
constexpr std::uint32_t k_crowd = bound_or(64u, 5u);

struct crowd_user {
    tr_h tr;
    int slot;           ///< of the edge
    std::uint32_t next; ///< a user further on, between which and this one none is free
};

/// A user found by the corner that is not on the edge.
struct crowd_third {
    vtx_h third;
    std::uint32_t place; ///< among the users
};

/// The users that one leaf lists.
struct crowded_edge {
    vtx_h a; ///< the edge's ends, in the order of their handles
    vtx_h b;
    std::uint32_t leaf; ///< serial number
    std::uint32_t count;
    crowd_user* users;   ///< in list order; owned
    crowd_third* thirds; ///< in the order of the corners; owned
    bool mutual;         ///< whoever is linked to a user is so in turn: else counting won't do
};

/// All that have been asked for; all zero is none.
struct crowded_edges {
    crowded_edge* edges; ///< owned
    std::uint32_t count;
    std::uint32_t capacity;
    std::uint32_t* slots; ///< hash of edge and leaf: a place plus 1, 0 free; owned
    std::uint32_t slot_count;
};

/// The users of an edge in a leaf, which are gathered when this is the first time. Links may be
/// made afterwards, on both sides, but not taken away.
/// @return null when memory ran out
crowded_edge* find_crowd(crowded_edges* crowds, vtx_h a, vtx_h b, const cell_node& leaf);

void crowds_free(crowded_edges* crowds);

/// The first user at or behind `place` that has no neighbour across the edge; `count` if none has.
std::uint32_t next_free_user(const crowded_edge& edge, std::uint32_t place);

/// How many of the users before `place` have a neighbour across the edge and count as errors of
/// a search from `t`: those that neither have its vertices nor are linked to it.
/// @param free  free users before `place`
std::uint32_t count_claims(const crowded_edge& edge, std::uint32_t place, std::uint32_t free,
                           tr_h t);

} // namespace velmora
