#include "mesh/tree_fill.h"

#include "mesh/box.h"
#include "mesh/cell_tree.h"
#include "mesh/checked.h"
#include "mesh/folded_cells.h"
#include "mesh/tree_growth.h"
#include "mesh/tree_stream.h"

#include <cmath>
#include <limits>

namespace velmora {

namespace {

/// Two of these still have a finite sum, and so a middle.
constexpr float k_most_of_sum = std::numeric_limits<float>::max() / 2.0f;

constexpr std::uint32_t k_near_count = 4096; ///< objects of a node whose boxes are copied together

// Entries for each object that lists may have before cells are folded; clean models have 2 to 4.
constexpr std::size_t k_entries_each = bound_or(16u, 1u);
constexpr std::size_t k_entries_anyway = bound_or(4096u, 64u);

// An object with its box beside it, for the lower levels, which then stay in the cache.
struct boxed {
    aabb box;
    std::uint32_t k;
};

// The streams of a node and of those above it, one behind the other.
template <class item_t> struct stream_stack {
    item_t* items;
    std::size_t capacity;
};

template <class item_t> bool reserve(stream_stack<item_t>* stack, std::size_t count)
{
    if (count <= stack->capacity) return true;
    const std::size_t capacity = count + count / 2;
    void* grown = heap_realloc(stack->items, sizeof(item_t) * capacity);
    if (!grown) return false;
    stack->items = static_cast<item_t*>(grown);
    stack->capacity = capacity;
    return true;
}

struct tree_filler {
    const aabb* boxes;
    const tree_limits* limits;
    mesh_ctx* ctx;
    stream_stack<std::uint32_t> far;
    stream_stack<boxed> near;
    std::size_t room; // entries that lists may still have
    bool outgrown;    // given up, because the limits would grow
};

stream_stack<std::uint32_t>* stack_of(tree_filler* f, std::uint32_t)
{
    return &f->far;
}
stream_stack<boxed>* stack_of(tree_filler* f, const boxed&)
{
    return &f->near;
}
const aabb& box_of(const tree_filler& f, std::uint32_t k)
{
    return f.boxes[k];
}
const aabb& box_of(const tree_filler&, const boxed& b)
{
    return b.box;
}
std::uint32_t number_of(std::uint32_t k)
{
    return k;
}
std::uint32_t number_of(const boxed& b)
{
    return b.k;
}

// What arrives at one node.
struct node_stream {
    node_h node;
    std::size_t at; // where it stands in the stack
    stream_head head;
};

// Whether a list of that length makes the limits grow beyond those that are known.
bool outgrows(const tree_limits& limits, std::uint32_t length)
{
    return !limits.all_known && length > tree_grow_limit(limits.max_list[limits.steps]) &&
           limits.max_level[limits.steps] < k_deepest_level;
}

// The entries of a list: numbers plus 1. Null when memory ran out.
template <class item_t> obj_h* entries_of(const item_t* items, std::uint32_t count)
{
    auto* const entries = heap_array<obj_h>(count);
    for (std::uint32_t i = 0; entries && i < count; ++i)
        entries[i] = {number_of(items[i]) + 1};
    return entries;
}

template <class item_t> bool fill_leaf(tree_filler* f, const node_stream& in, const item_t* items)
{
    const std::uint32_t count = in.head.count;
    if (count == 0) return true;
    f->outgrown = outgrows(*f->limits, count);
    obj_h* const entries = f->outgrown ? nullptr : entries_of(items, count);
    if (!entries) return false;
    rec(in.node).list = {entries, count, count};
    f->room -= count < f->room ? count : f->room;
    return true;
}

// How long the lists below get can't be seen then, so the growth of the limits has to be known.
template <class item_t> bool fold_node(tree_filler* f, const node_stream& in, const item_t* items)
{
    f->outgrown = !f->limits->all_known;
    obj_h* const entries = f->outgrown ? nullptr : entries_of(items, in.head.count);
    if (!entries) return false;
    cell_fold(in.node, in.head, entries);
    the_fold.used = true;
    return true;
}

template <class item_t> bool fill_node(tree_filler* f, const node_stream& in, item_t kind);

template <class item_t>
bool fill_child(tree_filler* f, const node_stream& in, std::uint32_t split, bool high, item_t kind)
{
    stream_stack<item_t>* const stack = stack_of(f, kind);
    if (!reserve(stack, in.at + 2 * std::size_t{in.head.count})) return false;
    const cell_node& node = rec(in.node);
    const item_t* const from = stack->items + in.at;
    const std::size_t to = in.at + in.head.count;
    const cell_half half = half_of(node, in.head.level, high);
    const auto boxes = [f](const item_t& item) -> const aabb& { return box_of(*f, item); };
    const stream_head head = divide_stream(in.head, from, split, half, boxes, stack->items + to);
    return fill_node(f, {high ? node.high : node.low, to, head}, kind);
}

// Goes on with copies of the boxes, once they are few enough to stay in the cache.
bool fill_near(tree_filler* f, const node_stream& in)
{
    if (!reserve(&f->near, in.head.count)) return false;
    const std::uint32_t* items = f->far.items + in.at;
    for (std::uint32_t i = 0; i < in.head.count; ++i)
        f->near.items[i] = {f->boxes[items[i]], items[i]};
    return fill_node(f, {in.node, 0, in.head}, boxed{});
}

template <class item_t> bool fill_node(tree_filler* f, const node_stream& in, item_t kind)
{
    mesh_ctx* ctx = f->ctx;
    const stream_head& head = in.head;
    if constexpr (sizeof(item_t) == sizeof(std::uint32_t)) {
        if (head.count <= k_near_count) return fill_near(f, in);
    }
    const item_t* items = stack_of(f, kind)->items + in.at;
    const std::uint32_t split =
        split_length(*f->limits, head, [items](std::uint32_t i) { return number_of(items[i]); });
    if (split > ctx->longest_list) ctx->longest_list = split;
    if (head.count != 0 && head.level > ctx->deepest_level) ctx->deepest_level = head.level;
    if (split == head.count) return fill_leaf(f, in, items);
    if (head.count > f->room) return fold_node(f, in, items);
    return cell_halve(in.node, head.level) && fill_child(f, in, split, false, kind) &&
           fill_child(f, in, split, true, kind);
}

bool fill_root(tree_filler* f, const std::uint32_t* stream, std::uint32_t stored)
{
    if (!reserve(&f->far, 2 * (std::size_t{stored} + 1)) || !f->far.items) return false;
    std::uint32_t touching = 0;
    for (std::uint32_t i = 0; i < stored; ++i)
        if (box_overlap(rec(f->ctx->root).box, f->boxes[stream[i]]))
            f->far.items[touching++] = stream[i];
    return fill_node(f, {f->ctx->root, 0, {0, touching, 0}}, std::uint32_t{});
}

void set_limits(const tree_limits& limits, mesh_ctx* ctx)
{
    ctx->max_level = limits.max_level[limits.steps];
    ctx->max_list = limits.max_list[limits.steps];
    if (limits.steps) ctx->grow_limit = tree_grow_limit(ctx->max_list);
}

// Folded cells hide how long the lists are; what counts is whether they make the limits grow.
void note_folding(const tree_limits& limits, mesh_ctx* ctx)
{
    if (!the_fold.used) return;
    the_fold.limits = limits;
    if (limits.longest > ctx->longest_list) ctx->longest_list = limits.longest;
}

} // namespace

bool tree_can_be_filled(const mesh_ctx& ctx)
{
    const aabb& box = rec(ctx.root).box;
    bool has_middle = ctx.max_list != 0;
    for (int i = 0; i < 3; ++i)
        has_middle = has_middle && std::fabs(box.min[i]) < k_most_of_sum &&
                     std::fabs(box.max[i]) < k_most_of_sum && box.min[i] <= box.max[i];
    return has_middle;
}

// Fills the root, or leaves it as it was.
static bool try_fill(const aabb* boxes, const std::uint32_t* stream, std::uint32_t stored,
                     const tree_limits& limits, bool* outgrown, mesh_ctx* ctx)
{
    const std::uint32_t longest = ctx->longest_list;
    const std::uint32_t deepest = ctx->deepest_level;
    const std::size_t room = k_entries_each * stored + k_entries_anyway;
    tree_filler filler = {boxes, &limits, ctx, {}, {}, room, false};
    const bool done = fill_root(&filler, stream, stored);
    heap_free(filler.far.items);
    heap_free(filler.near.items);
    *outgrown = filler.outgrown;
    if (done) {
        set_limits(limits, ctx);
        note_folding(limits, ctx);
        return true;
    }
    cell_forget_lists(ctx->root); // they hold no references yet
    cell_make_leaf(ctx->root);
    the_fold.used = false;
    ctx->longest_list = longest;
    ctx->deepest_level = deepest;
    return false;
}

fill_result tree_fill(const aabb* boxes, std::uint32_t count, const std::uint32_t* stream,
                      std::uint32_t stored, fill_hope hope, mesh_ctx* ctx)
{
    if (!tree_can_be_filled(*ctx)) return fill_declined;
    tree_limits limits;
    bool outgrown = true;
    start_limits(*ctx, count, &limits);
    if (hope == fill_as_before && try_fill(boxes, stream, stored, limits, &outgrown, ctx))
        return fill_done;
    if (!outgrown || !foretell_growth(boxes, count, stream, stored, *ctx, &limits))
        return fill_no_memory;
    const bool done = try_fill(boxes, stream, stored, limits, &outgrown, ctx);
    return done ? fill_done : fill_no_memory;
}

} // namespace velmora
