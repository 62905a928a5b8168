#include "mesh/tree_fill.h"

#include "mesh/box.h"
#include "mesh/cell_tree.h"
#include "mesh/tree_growth.h"

#include <cmath>

namespace velmora {

namespace {

constexpr std::uint32_t k_near_count = 4096; ///< objects of a node whose boxes are copied together

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
    bool outgrown; // given up, because the limits would grow
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
    std::uint32_t level;
    std::size_t at; // where it stands in the stack
    std::uint32_t count;
    std::uint32_t handed_down; // the first of them came with the parent's split, and split nothing
};

// Steps of the limits before insertion `k`.
std::uint32_t steps_before(const tree_limits& limits, std::uint32_t k)
{
    std::uint32_t s = 0;
    while (s < limits.steps && limits.times[s] < k)
        ++s;
    return s;
}

// How many entries the leaf's list has when it splits; all of them when it never does.
template <class item_t>
std::uint32_t split_length(const tree_limits& limits, const node_stream& in, const item_t* items)
{
    const std::uint32_t from =
        in.handed_down > limits.max_list[0] ? in.handed_down : limits.max_list[0];
    for (std::uint32_t i = from; i < in.count; ++i) {
        const std::uint32_t s = limits.steps ? steps_before(limits, number_of(items[i])) : 0;
        if (i >= limits.max_list[s] && in.level < limits.max_level[s]) return i;
        if (limits.steps == 0) break;
    }
    return in.count;
}

// Whether a list of that length makes the limits grow beyond those that are known.
bool outgrows(const tree_limits& limits, std::uint32_t length)
{
    return !limits.all_known && length > tree_grow_limit(limits.max_list[limits.steps]) &&
           limits.max_level[limits.steps] < k_deepest_level;
}

template <class item_t> bool fill_leaf(tree_filler* f, const node_stream& in, const item_t* items)
{
    if (in.count == 0) return true;
    f->outgrown = outgrows(*f->limits, in.count);
    if (f->outgrown) return false;
    obj_list& list = rec(in.node).list;
    if (!list_reserve(&list, in.count)) return false;
    for (std::uint32_t i = 0; i < in.count; ++i)
        list.items[i] = {number_of(items[i]) + 1};
    list.count = in.count;
    return true;
}

// Takes over the entries that touch one child, in order. Its other faces are the parent's, which
// they touch anyway.
template <class item_t> struct child_select {
    const tree_filler& f;
    bool high;
    std::uint32_t axis;
    float cut;
    item_t* to;
    std::uint32_t count;

    void take(const item_t& item)
    {
        const aabb& box = box_of(f, item);
        to[count] = item;
        count += high ? !(cut > box.max[axis]) : !(box.min[axis] > cut);
    }
};

template <class item_t> bool fill_node(tree_filler* f, const node_stream& in, item_t kind);

template <class item_t>
bool fill_child(tree_filler* f, const node_stream& in, std::uint32_t split, bool high, item_t kind)
{
    stream_stack<item_t>* const stack = stack_of(f, kind);
    if (!reserve(stack, in.at + 2 * std::size_t{in.count})) return false;
    const std::uint32_t axis = in.level % 3;
    const cell_node& node = rec(in.node);
    const item_t* const from = stack->items + in.at;
    child_select<item_t> child = {
        *f, high, axis, rec(node.low).box.max[axis], stack->items + in.at + in.count, 0};
    for (std::uint32_t i = split; i-- > 0;)
        child.take(from[i]);
    const std::uint32_t handed_down = child.count;
    for (std::uint32_t i = split; i < in.count; ++i)
        child.take(from[i]);
    return fill_node(
        f, {high ? node.high : node.low, in.level + 1, in.at + in.count, child.count, handed_down},
        kind);
}

// Goes on with copies of the boxes, once they are few enough to stay in the cache.
bool fill_near(tree_filler* f, const node_stream& in)
{
    if (!reserve(&f->near, in.count)) return false;
    const std::uint32_t* items = f->far.items + in.at;
    for (std::uint32_t i = 0; i < in.count; ++i)
        f->near.items[i] = {f->boxes[items[i]], items[i]};
    return fill_node(f, {in.node, in.level, 0, in.count, in.handed_down}, boxed{});
}

template <class item_t> bool fill_node(tree_filler* f, const node_stream& in, item_t kind)
{
    mesh_ctx* ctx = f->ctx;
    if constexpr (sizeof(item_t) == sizeof(std::uint32_t)) {
        if (in.count <= k_near_count) return fill_near(f, in);
    }
    const item_t* items = stack_of(f, kind)->items + in.at;
    const std::uint32_t split = split_length(*f->limits, in, items);
    if (split > ctx->longest_list) ctx->longest_list = split;
    if (in.count != 0 && in.level > ctx->deepest_level) ctx->deepest_level = in.level;
    if (split == in.count) return fill_leaf(f, in, items);
    return cell_halve(in.node, in.level) && fill_child(f, in, split, false, kind) &&
           fill_child(f, in, split, true, kind);
}

bool fill_root(tree_filler* f, const std::uint32_t* stream, std::uint32_t stored)
{
    if (!reserve(&f->far, 2 * (std::size_t{stored} + 1)) || !f->far.items) return false;
    std::uint32_t touching = 0;
    for (std::uint32_t i = 0; i < stored; ++i)
        if (box_overlap(rec(f->ctx->root).box, f->boxes[stream[i]]))
            f->far.items[touching++] = stream[i];
    return fill_node(f, {f->ctx->root, 0, 0, touching, 0}, std::uint32_t{});
}

void set_limits(const tree_limits& limits, mesh_ctx* ctx)
{
    ctx->max_level = limits.max_level[limits.steps];
    ctx->max_list = limits.max_list[limits.steps];
    if (limits.steps) ctx->grow_limit = tree_grow_limit(ctx->max_list);
}

} // namespace

bool tree_can_be_filled(const mesh_ctx& ctx)
{
    const aabb& box = rec(ctx.root).box;
    bool finite = ctx.max_list != 0;
    for (int i = 0; i < 3; ++i)
        finite = finite && std::fabs(box.min[i]) < k_empty_box &&
                 std::fabs(box.max[i]) < k_empty_box && box.min[i] <= box.max[i];
    return finite;
}

// Fills the root, or leaves it as it was.
static bool try_fill(const aabb* boxes, const std::uint32_t* stream, std::uint32_t stored,
                     const tree_limits& limits, bool* outgrown, mesh_ctx* ctx)
{
    const std::uint32_t longest = ctx->longest_list;
    const std::uint32_t deepest = ctx->deepest_level;
    tree_filler filler = {boxes, &limits, ctx, {}, {}, false};
    const bool done = fill_root(&filler, stream, stored);
    heap_free(filler.far.items);
    heap_free(filler.near.items);
    *outgrown = filler.outgrown;
    if (done) {
        set_limits(limits, ctx);
        return true;
    }
    cell_forget_lists(ctx->root); // they hold no references yet
    cell_make_leaf(ctx->root);
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
