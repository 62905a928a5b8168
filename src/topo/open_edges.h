// topo/open_edges.h - who else has an open edge, without a search through the tree.
//
// Most open edges are borders, where no other triangle could ever be found, and most others have
// exactly one. The index tells these from the edges with more users, where the order of the leaves
// decides. Users with the same three vertices are told apart from the others only by kind, because
// duplicates never link to each other.
#pragma once

#include "mesh/obj_list.h"
#include "mesh/records.h"

#include <cstdint>

namespace velmora {

/// Users of an edge with the same third vertex.
struct edge_kind {
    vtx_h third;
    obj_h first;         ///< one of them
    std::uint32_t count; ///< 0: there is no such kind
};

struct open_edge {
    vtx_h a; ///< the end with the smaller handle
    vtx_h b;
    edge_kind kinds[2];
    bool more_kinds; ///< there are users beyond these two kinds
};

/// All open edges, and a few others. Good as long as no corner changes.
struct open_edges {
    open_edge* edges; ///< owned
    std::uint32_t count;
    std::uint32_t capacity;
    std::uint32_t* slots;     ///< hash of the ends: an edge's place plus 1, 0 free; owned
    std::uint32_t slot_count; ///< a power of two, or 0
    bool collapsed;           ///< a triangle with two equal corners was met: nothing is known
};

/// Indexes the triangles of all objects that bear the visit stamp `stamp`. The index is empty when
/// they have no open edge.
/// @return false when memory ran out; the index is then empty
[[nodiscard]] bool open_edges_load(std::uint32_t stamp, open_edges* index);

/// Gives the memory back; the index is then empty.
void open_edges_free(open_edges* index);

/// How many users that are no duplicates of a triangle share its open edge.
enum partner_count {
    no_partner,
    only_pair,   ///< one, and the triangle itself has no duplicate
    one_partner, ///< one, which duplicates of the triangle may claim, too
    maybe_more
};

/// Counts the partners of `tr` across its open edge `i`.
/// @param[out] partner  set when there is just one
partner_count edge_partner(const open_edges& index, const tr_rec& tr, int i, obj_h* partner);

/// Each object that bears the stamp, in the order of their handles, which is that of memory.
template <class obj_fn> void for_each_stamped(std::uint32_t stamp, const obj_fn& visit)
{
    for (std::uint32_t i = 1; i < obj_pool.used; ++i) {
        const cell_obj& obj = rec(obj_h{i});
        if (obj.stamp == stamp && obj.refs != 0) visit(obj_h{i}, rec(obj.tr));
    }
}

} // namespace velmora
