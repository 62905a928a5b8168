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

/// All edges that may be open, and some that are not. Good as long as no corner changes.
struct open_edges {
    open_edge* edges; ///< owned
    std::uint32_t count;
    std::uint32_t capacity;
    std::uint32_t* slots;     ///< hash of the ends: an edge's place plus 1, 0 free; owned
    std::uint32_t slot_count; ///< a power of two, or 0
    bool collapsed;           ///< a triangle with two equal corners was met: nothing is known
};

/// Indexes the triangles of `objs`; false when memory ran out, and the index is then empty.
[[nodiscard]] bool open_edges_load(const obj_list& objs, open_edges* index);

/// Gives the memory back; the index is then empty.
void open_edges_free(open_edges* index);

enum partner_count {
    no_partner,
    one_partner,
    maybe_more
};

/// How many users that are no duplicates of `tr` share its open edge `i`.
/// @param[out] partner  the only one, when there is one
partner_count edge_partner(const open_edges& index, const tr_rec& tr, int i, obj_h* partner);

} // namespace velmora
