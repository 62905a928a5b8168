#include "topo/merge.h"

#include "mesh/box.h"
#include "mesh/cell_tree.h"
#include "mesh/vec.h"

namespace velmora {

namespace {

// What the pairs of a leaf ask for, side by side in list order.
struct leaf_view {
    aabb* boxes;
    tr_h* trs;
    std::uint32_t capacity;
};

void leaf_view_free(leaf_view* view)
{
    heap_free(view->boxes);
    heap_free(view->trs);
    *view = {};
}

bool leaf_view_reserve(leaf_view* view, std::uint32_t count)
{
    if (count <= view->capacity) return true;
    leaf_view_free(view);
    view->boxes = static_cast<aabb*>(heap_alloc(sizeof(aabb) * count));
    view->trs = static_cast<tr_h*>(heap_alloc(sizeof(tr_h) * count));
    if (!view->boxes || !view->trs) return false;
    view->capacity = count;
    return true;
}

bool look_at_leaf(const obj_list& list, leaf_view* view)
{
    if (!leaf_view_reserve(view, list.count)) return false;
    std::uint32_t n = 0;
    for (const obj_h o : list) {
        view->boxes[n] = rec(o).box;
        view->trs[n++] = rec(o).tr;
    }
    return true;
}

// The slot of the corner that gives way takes the record of the other.
void hand_over(vtx_h* slot, vtx_h to)
{
    const vtx_h old = *slot;
    *slot = vtx_ref(to);
    vtx_release(old);
}

// `a` stands before `b` in the list. Each step may change what the next one reads.
void merge_corners(tr_rec* a, tr_rec* b)
{
    for (vtx_h& p : a->vtx)
        for (vtx_h& q : b->vtx) {
            if (p == q || !pts_equal(rec(p).pos, rec(q).pos)) continue;
            if (rec(p).refs <= rec(q).refs) {
                hand_over(&p, q);
            } else {
                hand_over(&q, p);
            }
        }
}

void merge_leaf(const leaf_view& view, std::uint32_t count)
{
    for (std::uint32_t a = 0; a < count; ++a)
        for (std::uint32_t b = a + 1; b < count; ++b)
            if (box_overlap(view.boxes[a], view.boxes[b]))
                merge_corners(&rec(view.trs[a]), &rec(view.trs[b]));
}

} // namespace

stage_result merge_vertices(std::int32_t* err, mesh_ctx* ctx)
{
    if (!ctx->root) return stage_ok;
    leaf_view view = {};
    const bool done = walk_leaves(ctx->root, everywhere, [&](cell_node& leaf) {
        if (leaf.list.count < 2) return true;
        if (!look_at_leaf(leaf.list, &view)) return false;
        merge_leaf(view, leaf.list.count);
        return true;
    });
    leaf_view_free(&view);
    if (!done) *err = err_no_memory;
    return done ? stage_ok : stage_failed;
}

} // namespace velmora
