// mesh/folded_cells.h - cells whose subtree is made when somebody looks into it.
//
// Where the boxes of most objects overlap, the lists of all leaves together grow by the square of
// the objects, and few of them are ever asked for: the leaves in which a vertex lies, those where a
// walk meets an object for the first time, those on the way of a ray. So a tree that is filled at
// once leaves out what would be too much: a folded cell keeps the stream of objects that arrived at
// it, from which its halves follow at any time. What has left the tree meanwhile still takes its
// part in the splits, but is listed no more; a cell where nothing else is left is an empty leaf, as
// if all had been taken out of its leaves one by one.
#pragma once

#include "mesh/cell_tree.h"
#include "mesh/tree_growth.h"
#include "mesh/tree_stream.h"

namespace velmora {

/// What the streams' numbers mean. There is one tree in a run.
struct fold_store {
    aabb* boxes;            ///< by number of the insertion; owned
    obj_h* objs;            ///< by number: the object, none for one that has left the tree; owned
    std::uint32_t* gone_at; ///< by number: how many insertions there had been when it left; null
                            ///< while nothing has come since the tree was filled; owned
    std::uint32_t count;    ///< insertions
    std::uint32_t filled;   ///< of them, the first, came while the tree was filled
    std::uint32_t capacity; ///< room for numbers, with gone_at
    obj_h* scratch;         ///< room for a stream; owned
    std::uint32_t scratch_count;
    bool used;          ///< the tree has been filled with folded cells
    bool named;         ///< `objs` is complete: from now on lists have handles, and folded cells
                        ///< hold a reference for each entry whose object is in the tree
    bool torn;          ///< memory ran out while a cell was unfolded: walks have missed objects
    tree_limits limits; ///< while the tree was filled, and since
};

extern fold_store the_fold;

/// The object of an entry of a stream, which is a number plus 1; none when it has left the tree.
inline obj_h folded_obj(obj_h entry)
{
    return the_fold.objs[entry.i - 1];
}

/// What is known of a folded cell's stream.
inline stream_head head_of(const cell_node& node)
{
    return {node.level, node.list.count, node.handed_down};
}

/// Makes an empty leaf a folded cell, which takes over the stream that arrived there.
void cell_fold(node_h n, const stream_head& in, obj_h* stream);

/// Takes over the boxes of the tree that has just been filled, with folded cells.
void fold_keep(aabb* boxes, std::uint32_t count);

/// Takes over the objects, now that the lists have been named and the folded cells hold references.
void fold_name(obj_h* objs);

/// Forgets what the numbers mean, when there are no folded cells any more; that the tree was torn
/// is remembered to the end of the run.
void fold_free();

/// The entry that stands for the object in the cell's stream; none when it is not there. It is the
/// same in all folded cells that the object's box touches.
obj_h fold_entry_of(const cell_node& node, obj_h obj);

/// Drops the folded cell's reference on an object that is in its stream; without any other it
/// becomes an empty leaf. fold_forget is to follow. `*gone` is set when the object dies of it.
void fold_take_out(cell_node* node, obj_h obj, bool* gone);

/// The entry stands for nobody from now on.
void fold_forget(obj_h entry);

/// Drops the references of the folded cell on objects that bear the stamp; without any other it
/// becomes an empty leaf. fold_forget_stamped is to follow.
void fold_drop_stamped(cell_node* node, std::uint32_t stamp);

/// The numbers of objects that bear the stamp stand for nobody from now on.
void fold_forget_stamped(std::uint32_t stamp);

/// Drops the references of a folded cell, and the stream with them.
void fold_release(cell_node* node);

/// cell_unfold, after which the node can be folded again with that stream, which is the caller's.
[[nodiscard]] bool cell_unfold_for_now(node_h n, obj_list* stream);

/// Folds a node again, which takes its stream back. Below it nothing may have changed but that what
/// was unfolded for now is folded again.
void cell_fold_again(node_h n, const obj_list& stream);

/// walk_leaves over all leaves, which leaves folded what it finds so: for walks that come through
/// nearly all of the tree, when nobody needs as much of it afterwards.
template <class unfolds_fn, class leaf_fn>
bool walk_leaves_in_passing(node_h n, const unfolds_fn& unfolds, const leaf_fn& leaf)
{
    cell_node& node = rec(n);
    if (is_leaf(node)) return leaf(node);
    const bool was_folded = node.folded;
    obj_list stream;
    if (was_folded && !unfolds(node)) return true;
    if (was_folded && !cell_unfold_for_now(n, &stream)) return false;
    const bool done = walk_leaves_in_passing(node.low, unfolds, leaf) &&
                      walk_leaves_in_passing(node.high, unfolds, leaf);
    if (was_folded) cell_fold_again(n, stream);
    return done;
}

/// Calls `visit(obj_h)` for each object below a folded cell, in no order that means anything, until
/// it returns true; then so does this.
template <class visit_fn> bool any_folded(const cell_node& node, const visit_fn& visit)
{
    for (std::uint32_t i = 0; i < node.list.count; ++i) {
        const obj_h o = folded_obj(node.list.items[i]);
        if (o && visit(o)) return true;
    }
    return false;
}

} // namespace velmora
