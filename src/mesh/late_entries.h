// mesh/late_entries.h - what comes to folded cells one by one, once the tree has been filled.
//
// While a tree is filled nothing leaves it, so its limits and the order of insertion tell all about
// a cell. Later, repairs take objects out and put others in. So of each number it is known how many
// insertions there had been when its object left. A list that a late insertion finds is as long as
// those of its entries that had not left by then; and where all before it had, the cell had become
// an empty leaf again, and what was before does not matter.
#pragma once

#include "mesh/folded_cells.h"

namespace velmora {

/// Whether an object with that box can be added to the cell's stream: what this does to the lists
/// below must not make the limits grow.
bool may_come_late(const cell_node& node, const aabb& box, const mesh_ctx& ctx);

/// Adds an object to the stream of a folded cell, with a reference.
/// @param[in,out] entry  that stands for it in all folded cells; none in the first of them
/// @return false when memory ran out; the stream stands
[[nodiscard]] bool fold_add(cell_node* node, obj_h obj, obj_h* entry);

/// The limits of the tree have grown before the next insertion.
void fold_note_growth(const mesh_ctx& ctx);

/// The entry's object has left the tree.
void note_gone(obj_h entry);

/// How many entries come before the first late one.
std::uint32_t early_count(const stream_head& in, const obj_h* stream);

/// The least length at which a list has split since.
std::uint32_t least_late_split();

/// Drops what came before the cell was empty for the last time. Returns the head of what is left.
stream_head drop_outlived(const stream_head& in, obj_h* stream);

/// split_length of a stream that has nothing to drop.
std::uint32_t split_length_of(const stream_head& in, const obj_h* stream);

/// Whether the object of an entry had not left before that insertion.
inline bool is_there_at(obj_h entry, std::uint32_t number)
{
    return !the_fold.gone_at || the_fold.gone_at[entry.i - 1] > number;
}

} // namespace velmora
