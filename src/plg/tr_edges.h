// plg/tr_edges.h - how the open edges of one triangle join a polygon.
#pragma once

#include "mesh/context.h"
#include "plg/plg.h"

#include <cstdint>

namespace velmora {

/// Where a triangle joins.
enum plg_direction : std::int32_t {
    plg_first = 0,    ///< it opens an empty polygon
    plg_at_end = 1,   ///< it goes on from the last point
    plg_at_start = 2, ///< it goes on from the first point, backwards
};

/// Whether exactly one of the two edges at corner `k` is open: a boundary enters or leaves there.
bool corner_one_free(const tr_rec& tr, int k);

/// Stamps `obj` as used and adds the open edges of its triangle to `plg`. A triangle that goes on
/// from an end adds nothing when none of its corners is at that end, or no boundary leaves from it.
/// @return false when memory ran out, or a triangle that opens a polygon has no neighbour or three
[[nodiscard]] bool plg_add_tr(obj_h obj, plg_direction direction, plg_rec* plg, mesh_ctx* ctx);

} // namespace velmora
