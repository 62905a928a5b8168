#include "mesh/tree_renew.h"

#include "mesh/box.h"
#include "mesh/cell_tree.h"
#include "mesh/folded_cells.h"
#include "mesh/measure.h"
#include "mesh/tree_fill.h"

namespace velmora {

namespace {

// All objects, numbered in the order in which they are inserted. All owned.
struct renewal {
    obj_h* objs;
    aabb* boxes;
    std::uint32_t* stream; // the numbers of those that are stored
    std::uint32_t count;
    std::uint32_t stored;
    std::uint32_t collapsed; // of those that are stored
};

bool renewal_open(std::size_t most, renewal* r)
{
    *r = {};
    r->objs = heap_array<obj_h>(most);
    r->boxes = heap_array<aabb>(most);
    r->stream = heap_array<std::uint32_t>(most);
    return r->objs && r->boxes && r->stream;
}

void renewal_close(renewal* r)
{
    heap_free(r->objs);
    heap_free(r->boxes);
    heap_free(r->stream);
}

void number_objs(renewal* r, mesh_ctx* ctx)
{
    for_each_obj_once(ctx, [&](obj_h o, const cell_obj&) {
        r->objs[r->count++] = o;
        return true;
    });
    for (std::uint32_t i = 0, j = r->count; i + 1 < j; ++i) {
        const obj_h swap = r->objs[i];
        r->objs[i] = r->objs[--j];
        r->objs[j] = swap;
    }
}

// All that the insertion of an object with that box does but listing it; returns whether that is
// to follow.
bool count_insertion(std::uint32_t k, const aabb& box, renewal* r, mesh_ctx* ctx)
{
    const obj_h o = r->objs[k];
    rec(rec(o).tr).plane_class = 0;
    rec(o).box = r->boxes[k] = box;
    tr_assign_id(o, false, ctx);
    const bool inside = box_overlap(rec(ctx->root).box, box);
    const bool refused = inside && ctx->insert_hook && ctx->insert_hook(ctx->root, o);
    if (!refused) ++ctx->tr_count;
    if (!inside || refused) return false;
    r->stream[r->stored++] = k;
    return true;
}

void prepare_obj(std::uint32_t k, renewal* r, mesh_ctx* ctx)
{
    cell_obj& obj = rec(r->objs[k]);
    const tr_rec& tr = rec(obj.tr);
    const bool listed = count_insertion(k, box_of_tr(tr), r, ctx);
    obj.refs = 0;
    if (!tr_collapsed(tr)) return;
    obj.stamp = ctx->visit_stamp;
    if (listed) ++r->collapsed;
}

// The object of an entry, which is a number plus 1 yet; none when it collapsed and bears the visit
// stamp.
obj_h obj_to_list(obj_h entry, const renewal& r, const mesh_ctx& ctx)
{
    const obj_h o = r.objs[entry.i - 1];
    return rec(o).stamp == ctx.visit_stamp ? obj_h{} : o;
}

void name_leaf(obj_list* list, const renewal& r, const mesh_ctx& ctx)
{
    std::uint32_t kept = 0;
    for (std::uint32_t i = 0; i < list->count; ++i) {
        const obj_h o = obj_to_list(list->items[i], r, ctx);
        if (!o) continue;
        ++rec(o).refs;
        list->items[kept++] = o;
    }
    list->count = kept;
}

void name_folded(node_h n, const renewal& r, const mesh_ctx& ctx)
{
    const obj_list& stream = rec(n).list;
    bool any = false;
    for (std::uint32_t i = 0; i < stream.count; ++i) {
        const obj_h o = obj_to_list(stream.items[i], r, ctx);
        if (!o) continue;
        ++rec(o).refs;
        any = true;
    }
    if (!any) cell_forget_lists(n);
}

// Puts the objects' handles into the lists, less those that collapsed. What this leaves empty
// becomes one leaf again.
void name_entries(node_h n, const renewal& r, const mesh_ctx& ctx)
{
    cell_node& node = rec(n);
    if (is_leaf(node)) {
        name_leaf(&node.list, r, ctx);
    } else if (node.folded) {
        name_folded(n, r, ctx);
    } else {
        name_entries(node.low, r, ctx);
        name_entries(node.high, r, ctx);
        cell_join_if_empty(n);
    }
}

// An object is held by nobody while it is in no list, and dies if it has found none.
void drop_unlisted(renewal* r)
{
    for (std::uint32_t k = 0; k < r->count; ++k) {
        obj_h& o = r->objs[k];
        cell_obj& obj = rec(o);
        if (obj.refs != 0) continue;
        tr_unlink_nbrs(obj.tr);
        tr_unlink_mate(obj.tr);
        obj.refs = 1;
        cell_obj_release(o);
        o = {};
    }
}

// Folded cells go on asking what the numbers mean.
void keep_numbers(renewal* r)
{
    if (!the_fold.used) return;
    fold_keep(r->boxes, r->count);
    fold_name(r->objs);
    r->boxes = nullptr;
    r->objs = nullptr;
}

// Divides the objects among the leaves. False when memory ran out.
bool list_objs(fill_hope hope, const renewal& r, mesh_ctx* ctx)
{
    if (tree_fill(r.boxes, r.count, r.stream, r.stored, hope, ctx) != fill_done) return false;
    name_entries(ctx->root, r, *ctx);
    return true;
}

bool refill(renewal* r, mesh_ctx* ctx)
{
    cell_forget_lists(ctx->root); // the references are counted anew
    cell_make_leaf(ctx->root);
    fold_free();
    ctx->tr_count = 0;
    ctx->in_order = false;
    ++ctx->visit_stamp;
    for (std::uint32_t k = 0; k < r->count; ++k)
        prepare_obj(k, r, ctx);
    if (!list_objs(fill_as_before, *r, ctx)) return false;
    drop_unlisted(r);
    keep_numbers(r);
    ctx->tr_count -= r->collapsed;
    return true;
}

// A box of a NaN holds nothing, but may touch the root, and then perhaps none of its halves.
bool may_be_lost(const aabb& box, const aabb& root)
{
    return !box_holds_something(box) && box_overlap(root, box);
}

// Whether the exact box of a NaN touches the root; one that is widened by a tolerance does sooner.
bool reaches_far(const aabb& root)
{
    bool far = false;
    for (int i = 0; i < 3; ++i)
        far = far || root.min[i] <= -k_empty_box || root.max[i] >= k_empty_box;
    return far;
}

bool may_lose_objs(mesh_ctx* ctx)
{
    const aabb& root = rec(ctx->root).box;
    return reaches_far(root) && !for_each_obj_once(ctx, [&root](obj_h, const cell_obj& obj) {
               return !may_be_lost(box_of_tr(rec(obj.tr)), root);
           });
}

bool may_lose_some(const obj_list& objs, const mesh_ctx& ctx)
{
    for (const obj_h o : objs)
        if (may_be_lost(rec(o).box, rec(ctx.root).box)) return true;
    return false;
}

bool fill_with(const obj_list& objs, renewal* r, mesh_ctx* ctx)
{
    ctx->in_order = false;
    ++ctx->visit_stamp; // nobody bears it: all are listed
    for (const obj_h o : objs) {
        const std::uint32_t k = r->count++;
        r->objs[k] = o;
        if (!count_insertion(k, rec(o).box, r, ctx)) r->objs[k] = {};
    }
    if (!list_objs(fill_may_grow, *r, ctx)) return false;
    keep_numbers(r);
    return true;
}

} // namespace

renew_result tree_renew(mesh_ctx* ctx)
{
    if (!tree_can_be_filled(*ctx) || may_lose_objs(ctx)) return renew_declined;
    renewal r;
    bool done = renewal_open(obj_pool.used, &r);
    if (done) {
        number_objs(&r, ctx);
        done = !tree_is_torn() && refill(&r, ctx);
    }
    renewal_close(&r);
    return done ? renew_done : renew_no_memory;
}

renew_result tree_add_all(const obj_list& objs, mesh_ctx* ctx)
{
    if (!tree_can_be_filled(*ctx) || may_lose_some(objs, *ctx)) return renew_declined;
    renewal r;
    const bool done = renewal_open(objs.count, &r) && fill_with(objs, &r, ctx);
    renewal_close(&r);
    return done ? renew_done : renew_no_memory;
}

} // namespace velmora
