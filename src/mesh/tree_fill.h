// mesh/tree_fill.h - builds a whole tree at once that is the same as by inserting object by object.
//
// What a child sees is a part of its parent's stream (tree_stream.h). Streams need no tree: node by
// node they are divided in two, in memory that lies together, where single insertions jump through
// the whole tree. When the limits grow on the way is known beforehand. Where lists would get many
// times longer than the model, cells are left folded (folded_cells.h).
#pragma once

#include "mesh/context.h"

namespace velmora {

enum fill_result {
    fill_done,
    fill_declined, ///< the root's box is no box of finite numbers: insert one by one
    fill_no_memory
};

/// Whether tree_fill takes on the tree: its root has a box of finite numbers, and so has each cell.
/// No object's box may be one of a NaN that touches the root: it may be in none of its halves.
bool tree_can_be_filled(const mesh_ctx& ctx);

/// How the growth of the limits is dealt with; a matter of time only.
enum fill_hope {
    fill_may_grow, ///< it is foretold first
    fill_as_before ///< it is not likely, as the tree's limits have served before: only when needed
};

/// Divides the objects stream[0], stream[1] ... among the leaves of ctx->root, which is one empty
/// leaf, as if inserted in this order, and lets the tree's limits grow as they would. The lists
/// hold bare numbers in place of handles: entry k of `boxes` is listed as k + 1, and counts no
/// references; the caller puts real handles there. When the_fold.used is set, some cells are
/// folded, and the caller hands over what their numbers mean (fold_keep), or forgets the tree. The
/// insert hook is not asked; the numbers below `count` that are not in `stream` stand for
/// insertions that it refuses. The tree's count stays. Unless fill_done, the root is left one empty
/// leaf.
/// @param stream  `stored` numbers below `count`, ascending
[[nodiscard]] fill_result tree_fill(const aabb* boxes, std::uint32_t count,
                                    const std::uint32_t* stream, std::uint32_t stored,
                                    fill_hope hope, mesh_ctx* ctx);

} // namespace velmora
