// mesh/cell_tree.h - the one container of the mesh: a binary tree of cells over the model's box.
//
// An inner node is cut in two at the middle of one axis, the axes taking turns by level; only
// leaves list objects, and an object stands in every leaf that its box touches. A node has both
// children or neither; a folded one gets them when it is asked for (folded_cells.h). To meet every
// object once, take a new visit stamp and skip what bears it; for_each_obj_once does that. The tree
// finds an object by its box, so the box must not change while the object is in the tree. Descents
// recurse, never deeper than k_deepest_level.
#pragma once

#include "mesh/context.h"
#include "mesh/obj_list.h"

#include <cstdint>

namespace velmora {

constexpr std::uint32_t k_deepest_level = 21; ///< no limit ever grows beyond it

/// The length beyond which a list makes the limits grow.
constexpr std::uint32_t tree_grow_limit(std::uint32_t max_list)
{
    return 10 * max_list;
}

/// Where a cell from `min` to `max` is cut.
inline float cell_cut(float min, float max)
{
    const float sum = min + max;
    return static_cast<float>(static_cast<double>(sum) * 0.5);
}

/// One cell. The level is never stored: descents carry it.
struct cell_node {
    aabb box;
    node_h low;                ///< child below the cut, or none
    node_h high;               ///< child above the cut, or none
    obj_list list;             ///< the objects of a leaf; empty in an inner node; in a folded one
                               ///< its stream, see fold_store
    std::uint32_t serial;      ///< unlike that of any other node of the run, and lost when freed
    std::uint32_t handed_down; ///< of a folded node: as in stream_head
    std::uint8_t level;        ///< of a folded node
    bool folded;
    bool search_done; ///< the orientation has found no further seed below
};

extern pool<cell_node> node_pool;

inline cell_node& rec(node_h n)
{
    return pool_at(node_pool, n);
}

inline bool is_leaf(const cell_node& node)
{
    return !node.low && !node.folded;
}

// What folded_cells.cpp does for all who walk.

/// Gives a folded node its children, which are leaves or folded in turn.
/// @return false when memory ran out; the node stays folded, and tree_is_torn from then on
[[nodiscard]] bool cell_unfold(node_h n);

/// Whether a folded node has an object without that stamp.
bool folded_has_unseen(const cell_node& node, std::uint32_t stamp);

/// Whether memory ran out in a walk, which has missed objects then: the run can't go on.
bool tree_is_torn();

/// How a stage ends whose walks may have missed objects.
stage_result unless_torn(std::int32_t* err);

/// Creates the root with `box` and sets the tree's limits: `list_len` and `level` when both are
/// given, else from `estimate`, about twice the number of triangles to come.
/// @return the root, not yet hung on `ctx`; none when memory ran out
[[nodiscard]] node_h cell_tree_new(const aabb& box, std::uint32_t list_len, std::uint32_t level,
                                   std::uint32_t estimate, mesh_ctx* ctx);

/// Frees all nodes and the references of their leaves; ctx->root is left as it was.
void cell_tree_free(mesh_ctx* ctx);

/// Empties all lists below `node` without a word to the objects: their counts are void afterwards.
void cell_forget_lists(node_h node);

/// Frees all nodes, and forgets the objects. For the end of a run, when the records go as a whole.
void cell_tree_discard(mesh_ctx* ctx);

/// Makes `node` a leaf with an empty list: what was below is freed, with its references.
void cell_make_leaf(node_h node);

/// Gives a leaf of that level two empty children, cut in the middle; its list stays with it.
/// @return false when memory ran out; the leaf then stays one
[[nodiscard]] bool cell_halve(node_h leaf, std::uint32_t level);

/// Takes the two children away again, with their lists, whose references are not dropped.
void cell_forget_halves(node_h n);

/// Makes two empty halves one empty leaf again. Called on the way up from every removal, as
/// elsewhere in the tree no such pair can stand.
void cell_join_if_empty(node_h n);

/// Frees `node` and all below it.
void cell_free(node_h node);

/// Inserts `obj` from the root; the limits may grow by one step before. An object outside the
/// root's box is stored nowhere, yet counted.
/// @param[out] added  false when the insert hook refused it; may be null
/// @return false when memory ran out; the object may then stand in part of its leaves
[[nodiscard]] bool tree_add(obj_h obj, bool* added, mesh_ctx* ctx);

/// Takes `obj` out of every leaf and collapses cells that this leaves empty. It dies when nobody
/// else holds it; else its box is empty from then on.
void tree_remove(obj_h obj, mesh_ctx* ctx);

/// Clears the triangle's neighbour and pair links, then tree_remove.
void tr_remove_obj(obj_h obj, mesh_ctx* ctx);

/// tr_remove_obj for all of `objs`, which stand in the tree, each listed once: one walk over the
/// whole tree instead of a descent for each. Takes a new visit stamp.
void tr_remove_objs(const obj_list& objs, mesh_ctx* ctx);

/// tr_remove_obj for a triangle; it dies unless somebody else holds it or its object, and then has
/// no object any more.
void tr_delete(tr_h tr, mesh_ctx* ctx);

/// Pushes every object below `node` that does not bear the visit stamp, and stamps it, so the list
/// has them in the reverse of the order of discovery. Adds to `*head` and `*count`.
[[nodiscard]] bool tree_collect(node_h node, obj_list* head, std::uint32_t* count, mesh_ctx* ctx);

/// The first leaf, low before high, whose box contains `point`; none outside of `node`.
node_h cell_find_leaf(node_h node, const float* point);

/// Wraps `tr` in a new object with an empty box at the front of `head`, counting it.
/// @return the object, or none with `*err` set when memory ran out
[[nodiscard]] obj_h tr_wrap(tr_h tr, std::uint32_t* count, obj_list* head, std::int32_t* err);

/// Gives the node pool back to the heap. For the end of a run.
void cell_nodes_free();

/// Depth first, low before high, over the leaves below `node`. `enter(const cell_node&)` decides
/// whether to look into a node, and `unfolds(const cell_node&)` then about a folded one, whether
/// there can be anything new in the leaves that it stands for; `leaf(cell_node&)` returns false to
/// end the walk, then so does this, and also when memory runs out, see tree_is_torn. None may
/// insert or remove.
template <class enter_fn, class unfolds_fn, class leaf_fn>
bool walk_leaves(node_h node, const enter_fn& enter, const unfolds_fn& unfolds, const leaf_fn& leaf)
{
    cell_node& n = rec(node);
    if (!enter(n)) return true;
    if (is_leaf(n)) return leaf(n);
    if (n.folded) {
        if (!unfolds(n)) return true;
        if (!cell_unfold(node)) return false;
    }
    return walk_leaves(n.low, enter, unfolds, leaf) && walk_leaves(n.high, enter, unfolds, leaf);
}

/// For walks that look into every node.
inline bool everywhere(const cell_node&)
{
    return true;
}

/// For walks that leave folded what is folded.
inline bool nowhere(const cell_node&)
{
    return false;
}

/// The same where all leaves count.
template <class enter_fn, class leaf_fn>
bool walk_leaves(node_h node, const enter_fn& enter, const leaf_fn& leaf)
{
    return walk_leaves(node, enter, everywhere, leaf);
}

/// Whether a leaf of the tree lists the object.
inline bool is_in_tree(const cell_obj& obj)
{
    return obj.refs != 0 && obj.box.min[0] <= obj.box.max[0];
}

/// The walk of for_each_obj_once over a mesh that is in order.
template <class obj_fn> bool for_each_obj_in_order(const obj_fn& visit)
{
    for (std::uint32_t i = 1; i < obj_pool.used; ++i) {
        cell_obj& obj = rec(obj_h{i});
        if (is_in_tree(obj) && !visit(obj_h{i}, obj)) return false;
    }
    return true;
}

/// The same for walks that pass over what bears the visit stamp: a folded node all of whose objects
/// do has nothing for them.
template <class leaf_fn> bool walk_unseen(node_h node, const mesh_ctx& ctx, const leaf_fn& leaf)
{
    const auto has_unseen = [&](const cell_node& n) {
        return folded_has_unseen(n, ctx.visit_stamp);
    };
    return walk_leaves(node, everywhere, has_unseen, leaf);
}

/// Each object once, in the order in which a walk over the leaves meets them;
/// `visit(obj_h, cell_obj&)` returns false to end the walk, then so does this. Takes a new visit
/// stamp; the visited objects may bear it.
template <class obj_fn> bool for_each_obj_once(mesh_ctx* ctx, const obj_fn& visit)
{
    ++ctx->visit_stamp;
    if (!ctx->root) return true;
    if (ctx->in_order) return for_each_obj_in_order(visit);
    return walk_unseen(ctx->root, *ctx, [&](cell_node& leaf) {
        for (const obj_h o : leaf.list) {
            cell_obj& obj = rec(o);
            if (obj.stamp == ctx->visit_stamp) continue;
            obj.stamp = ctx->visit_stamp;
            if (!visit(o, obj)) return false;
        }
        return true;
    });
}

} // namespace velmora
