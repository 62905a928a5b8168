#include "mesh/cell_tree.h"

#include "mesh/box.h"
#include "mesh/folded_cells.h"
#include "mesh/late_entries.h"

#include <cmath>

namespace velmora {

pool<cell_node> node_pool;

namespace {

constexpr std::uint32_t k_default_list = 128;

std::uint32_t last_serial = 0;

node_h node_new(const aabb& box)
{
    const node_h n = pool_take(&node_pool);
    if (n) rec(n) = {box, {}, {}, {}, ++last_serial, 0, 0, false, false};
    return n;
}

// A leaf of a well-spread model holds a few triangles; the level follows from how many leaves
// that takes.
void size_tree(std::uint32_t estimate, mesh_ctx* ctx)
{
    ctx->max_list = estimate < 2000000 ? 32 : estimate < 4000000 ? 64 : 128;
    const std::uint32_t full_leaves = estimate / ctx->max_list;
    const double leaves = static_cast<double>(full_leaves);
    const double levels = leaves > 2.0 ? std::log10(leaves) / std::log10(2.0) : 2.0;
    const double wanted = std::floor(levels) + 1.0;
    ctx->max_level =
        wanted < k_deepest_level ? static_cast<std::uint32_t>(wanted) : k_deepest_level;
    ctx->grow_limit = tree_grow_limit(ctx->max_list);
}

void grow_limits(mesh_ctx* ctx)
{
    if (ctx->max_level >= k_deepest_level || ctx->longest_list <= ctx->grow_limit) return;
    ++ctx->max_level;
    ctx->max_list *= 2;
    ctx->grow_limit = tree_grow_limit(ctx->max_list);
    fold_note_growth(*ctx);
}

// Every object that touches the cut goes into both halves.
bool cell_redistribute(const cell_node& node, mesh_ctx* ctx)
{
    cell_node& low = rec(node.low);
    cell_node& high = rec(node.high);
    for (const obj_h o : node.list) {
        const aabb& box = rec(o).box;
        if (box_overlap(low.box, box) && !list_push(&low.list, o)) return false;
        if (box_overlap(high.box, box) && !list_push(&high.list, o)) return false;
    }
    if (low.list.count > ctx->longest_list) ctx->longest_list = low.list.count;
    if (high.list.count > ctx->longest_list) ctx->longest_list = high.list.count;
    return true;
}

bool cell_split(node_h n, std::uint32_t level, mesh_ctx* ctx)
{
    if (!cell_halve(n, level)) return false;
    cell_node& node = rec(n);
    if (!cell_redistribute(node, ctx)) return false;
    list_free(&node.list);
    return true;
}

bool cell_list_add(cell_node* leaf, obj_h obj, mesh_ctx* ctx)
{
    if (!list_push(&leaf->list, obj)) return false;
    if (leaf->list.count > ctx->longest_list) ctx->longest_list = leaf->list.count;
    return true;
}

struct insertion {
    obj_h obj;
    bool refused; // by the hook
    obj_h entry;  // that stands for it in folded cells, when one has been met
    mesh_ctx* ctx;
};

bool is_refused(node_h n, insertion* job)
{
    const mesh_ctx& ctx = *job->ctx;
    job->refused = ctx.insert_hook && ctx.insert_hook(n, job->obj);
    return job->refused;
}

bool cell_insert(node_h n, std::uint32_t level, insertion* job)
{
    cell_node& node = rec(n);
    mesh_ctx* const ctx = job->ctx;
    const aabb& box = rec(job->obj).box;
    if (!box_overlap(node.box, box)) return true;
    if (is_leaf(node)) {
        if (is_refused(n, job)) return true;
        if (level > ctx->deepest_level) ctx->deepest_level = level;
        if (node.list.count < ctx->max_list || level >= ctx->max_level)
            return cell_list_add(&node, job->obj, ctx);
        if (!cell_split(n, level, ctx)) return false;
    } else if (node.folded) {
        if (may_come_late(node, box, *ctx))
            return is_refused(n, job) || fold_add(&node, job->obj, &job->entry);
        if (!cell_unfold(n)) return false;
    }
    return cell_insert(node.low, level + 1, job) && cell_insert(node.high, level + 1, job);
}

struct removal {
    obj_h obj;
    const aabb* box;  // of the object, whose record outlives it
    bool obj_gone;    // its last reference went
    bool was_removed; // some leaf listed it
    obj_h entry;      // that stands for it in folded cells, when one has been met
};

void take_out_folded(cell_node* node, removal* job)
{
    if (!job->entry) job->entry = fold_entry_of(*node, job->obj);
    if (!job->entry) return;
    fold_take_out(node, job->obj, &job->obj_gone);
    job->was_removed = true;
}

void tree_remove_walk(node_h n, removal* job)
{
    cell_node& node = rec(n);
    if (job->obj_gone || rec(job->obj).refs == 0 || !box_overlap(node.box, *job->box)) return;
    if (is_leaf(node)) {
        if (list_take_out(&node.list, job->obj, &job->obj_gone)) job->was_removed = true;
        return;
    }
    if (node.folded) {
        take_out_folded(&node, job);
        return;
    }
    tree_remove_walk(node.low, job);
    tree_remove_walk(node.high, job);
    cell_join_if_empty(n);
}

// The list without the objects that bear the stamp, in the same order.
void drop_stamped(obj_list* list, std::uint32_t stamp)
{
    std::uint32_t kept = 0;
    for (std::uint32_t i = 0; i < list->count; ++i) {
        const obj_h o = list->items[i];
        if (rec(o).stamp == stamp) {
            cell_obj_release(o);
        } else {
            list->items[kept++] = o;
        }
    }
    list->count = kept;
}

void drop_stamped_below(node_h n, std::uint32_t stamp)
{
    cell_node& node = rec(n);
    if (is_leaf(node)) {
        drop_stamped(&node.list, stamp);
        return;
    }
    if (node.folded) {
        fold_drop_stamped(&node, stamp);
        return;
    }
    drop_stamped_below(node.low, stamp);
    drop_stamped_below(node.high, stamp);
    cell_join_if_empty(n);
}

} // namespace

void mesh_ctx_init(mesh_ctx* ctx, bool (*insert_hook)(node_h, obj_h))
{
    *ctx = {};
    ctx->max_level = k_deepest_level;
    ctx->max_list = k_default_list;
    ctx->insert_hook = insert_hook;
}

node_h cell_tree_new(const aabb& box, std::uint32_t list_len, std::uint32_t level,
                     std::uint32_t estimate, mesh_ctx* ctx)
{
    const node_h root = node_new(box);
    if (!root) return root;
    if (level != 0 && list_len != 0) {
        ctx->max_level = level;
        ctx->max_list = list_len;
    } else {
        size_tree(estimate, ctx);
    }
    return root;
}

bool cell_halve(node_h n, std::uint32_t level)
{
    const aabb box = rec(n).box;
    const node_h low = node_new(box);
    const node_h high = low ? node_new(box) : node_h{};
    if (!high) return false;
    rec(n).low = low;
    rec(n).high = high;
    const std::uint32_t axis = level % 3;
    const float cut = cell_cut(box.min[axis], box.max[axis]);
    rec(low).box.max[axis] = cut;
    rec(high).box.min[axis] = cut;
    return true;
}

void cell_forget_halves(node_h n)
{
    cell_node& node = rec(n);
    cell_forget_lists(node.low);
    cell_forget_lists(node.high);
    cell_free(node.low);
    cell_free(node.high);
    node.low = node.high = {};
}

static bool is_empty_leaf(const cell_node& node)
{
    return is_leaf(node) && node.list.count == 0;
}

// A leaf's list or a folded node's stream, with its references.
static void drop_list(cell_node* node)
{
    if (node->folded) {
        fold_release(node);
    } else {
        list_free(&node->list);
    }
}

void cell_join_if_empty(node_h n)
{
    cell_node& node = rec(n);
    if (!is_empty_leaf(rec(node.low)) || !is_empty_leaf(rec(node.high))) return;
    cell_free(node.low);
    cell_free(node.high);
    node.low = node.high = {};
}

void cell_make_leaf(node_h n)
{
    cell_node& node = rec(n);
    drop_list(&node);
    if (is_leaf(node)) return;
    cell_free(node.low);
    cell_free(node.high);
    node.low = node.high = {};
}

void cell_forget_lists(node_h n)
{
    cell_node& node = rec(n);
    heap_free(node.list.items);
    node.list = {};
    node.folded = false;
    if (is_leaf(node)) return;
    cell_forget_lists(node.low);
    cell_forget_lists(node.high);
}

void cell_tree_discard(mesh_ctx* ctx)
{
    the_fold.torn = false;
    if (!ctx->root) return;
    cell_forget_lists(ctx->root);
    cell_free(ctx->root);
    ctx->root = {};
    fold_free();
}

void cell_tree_free(mesh_ctx* ctx)
{
    if (ctx->root) cell_free(ctx->root);
    fold_free();
    the_fold.torn = false;
}

void cell_free(node_h node)
{
    const cell_node n = rec(node);
    if (n.low) {
        cell_free(n.low);
        cell_free(n.high);
    }
    drop_list(&rec(node));
    rec(node).serial = 0;
    pool_give_back(&node_pool, node);
}

bool tree_add(obj_h obj, bool* added, mesh_ctx* ctx)
{
    ctx->in_order = false;
    grow_limits(ctx);
    insertion job = {obj, false, {}, ctx};
    if (!cell_insert(ctx->root, 0, &job)) return false;
    if (added) *added = !job.refused;
    if (!job.refused) ++ctx->tr_count;
    return true;
}

void tree_remove(obj_h obj, mesh_ctx* ctx)
{
    removal job = {obj, &rec(obj).box, false, false, {}};
    tree_remove_walk(ctx->root, &job);
    if (job.entry) fold_forget(job.entry);
    rec(obj).box = k_no_box;
    if (job.was_removed) --ctx->tr_count;
}

void tr_remove_obj(obj_h obj, mesh_ctx* ctx)
{
    const tr_h t = rec(obj).tr;
    tr_unlink_nbrs(t);
    tr_unlink_mate(t);
    tree_remove(obj, ctx);
}

void tr_remove_objs(const obj_list& objs, mesh_ctx* ctx)
{
    if (objs.count == 0) return;
    ++ctx->visit_stamp;
    for (const obj_h o : objs) {
        tr_unlink_nbrs(rec(o).tr);
        tr_unlink_mate(rec(o).tr);
        rec(o).stamp = ctx->visit_stamp;
    }
    drop_stamped_below(ctx->root, ctx->visit_stamp);
    fold_forget_stamped(ctx->visit_stamp);
    for (const obj_h o : objs)
        rec(o).box = k_no_box;
    ctx->tr_count -= objs.count;
}

void tr_delete(tr_h t, mesh_ctx* ctx)
{
    tr_unlink_nbrs(t);
    tr_unlink_mate(t);
    const obj_h obj = rec(t).cell;
    if (!obj) return;
    cell_obj_ref(obj);
    rec(t).cell = {};
    tree_remove(obj, ctx);
    cell_obj_release(obj);
}

bool tree_collect(node_h node, obj_list* head, std::uint32_t* count, mesh_ctx* ctx)
{
    const auto collect = [&](obj_h o, cell_obj& obj) {
        if (obj.stamp == ctx->visit_stamp) return true;
        obj.stamp = ctx->visit_stamp;
        ++*count;
        return list_push(head, o);
    };
    if (ctx->in_order && node == ctx->root) return for_each_obj_in_order(collect);
    return walk_unseen(node, *ctx, [&](cell_node& leaf) {
        for (const obj_h o : leaf.list)
            if (!collect(o, rec(o))) return false;
        return true;
    });
}

node_h cell_find_leaf(node_h node, const float* point)
{
    const cell_node& n = rec(node);
    if (!pt_in_box(n.box, point)) return {};
    if (is_leaf(n)) return node;
    if (n.folded && !cell_unfold(node)) return {};
    const node_h found = cell_find_leaf(n.low, point);
    return found ? found : cell_find_leaf(n.high, point);
}

obj_h tr_wrap(tr_h tr, std::uint32_t* count, obj_list* head, std::int32_t* err)
{
    const obj_h o = cell_obj_new();
    if (!o || !list_push(head, o)) {
        *err = err_no_memory;
        return {};
    }
    rec(o).tr = tr_ref(tr);
    rec(tr).cell = o;
    ++*count;
    return o;
}

void cell_nodes_free()
{
    pool_empty(&node_pool);
}

} // namespace velmora
