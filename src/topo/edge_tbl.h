// topo/edge_tbl.h - the table of edges that more than two triangles claim, with all their users.
//
// The table holds a reference on the object of each user. The ends of an edge are not counted: no
// vertex is made while a table lives, so a handle that outlives its vertex is found in no triangle.
// Users bear the mark tr_edge_err for as long as the table stands.
//
// Entries move when the table grows: a pointer to one is good until the next addition.
#pragma once

#include "mesh/audit.h"
#include "mesh/context.h"
#include "mesh/records.h"

#include <cstdint>

namespace velmora {

struct user_lookup;

/// A triangle that has the edge.
struct edge_user {
    std::uint32_t slot; ///< the edge's number in the triangle
    obj_h obj;          ///< counted
};

/// One edge.
struct edge_rec {
    vtx_h a; ///< one end; not counted
    vtx_h b; ///< the other
    std::uint32_t count;
    std::uint32_t capacity;
    edge_user* users; ///< owned
};

/// The entry with the ends `a` and `b`, in either order, or null.
edge_rec* edge_tbl_find(const edge_tbl& tbl, vtx_h a, vtx_h b);

/// A new entry without users at the end, or null when memory ran out; the table then stands.
[[nodiscard]] edge_rec* edge_tbl_add(edge_tbl* tbl, vtx_h a, vtx_h b);

/// Appends a user, with a reference of its own on `obj`; false when memory ran out.
[[nodiscard]] bool edge_user_add(edge_rec* edge, obj_h obj, std::uint32_t slot);

/// Orders the users by ascending area of their triangles.
/// @return false when memory ran out; the order then stands
[[nodiscard]] bool edge_users_sort(edge_rec* edge);

/// Enters the edge from `a` to `b`, unless it stands in the table already, with every triangle
/// that has it and whose object's box touches that of `obj`, and marks these. Takes a new visit
/// stamp for an edge that is new.
/// @param lookup  of the link pass, which spares reading lists; may be null
/// @return false when memory ran out; the users found until then stay
[[nodiscard]] bool note_edge_error(vtx_h a, vtx_h b, edge_tbl* tbl, obj_h obj, user_lookup* lookup,
                                   mesh_ctx* ctx);

/// Unmarks all users, takes the neighbour links on the table's edges away, so that the next link
/// pass decides afresh, and empties the table. Edge errors are thus no permanent state.
void edge_tbl_free(edge_tbl* tbl);

/// Tells an audit which objects the table holds.
void edge_tbl_audit(count_audit* audit, const edge_tbl& tbl);

} // namespace velmora
