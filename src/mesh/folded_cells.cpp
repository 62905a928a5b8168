#include "mesh/folded_cells.h"

#include "mesh/late_entries.h"

#include <cstring>

namespace velmora {

fold_store the_fold;

namespace {

// Entries of streams are numbers plus 1.
const aabb& box_of(obj_h entry)
{
    return the_fold.boxes[entry.i - 1];
}

void forget_stream(cell_node* node)
{
    heap_free(node->list.items);
    node->list = {};
    node->folded = false;
}

void name_entries(obj_list* list)
{
    std::uint32_t kept = 0;
    for (std::uint32_t i = 0; i < list->count; ++i)
        if (const obj_h o = folded_obj(list->items[i])) list->items[kept++] = o;
    list->count = kept;
}

bool is_empty(const cell_node& node)
{
    return !any_folded(node, [](obj_h) { return true; });
}

// Makes a new child what its stream makes of it.
void settle_child(cell_node* child, const stream_head& head, obj_h* stream)
{
    child->list = {stream, head.count, head.count};
    child->level = static_cast<std::uint8_t>(head.level);
    child->handed_down = head.handed_down;
    child->folded = true;
    if (the_fold.named && is_empty(*child)) {
        forget_stream(child);
    } else if (split_length_of(head, stream) == head.count) {
        child->folded = false;
        if (the_fold.named) name_entries(&child->list);
    }
}

// Calls `visit(obj_h)` for what touches both halves: it has one entry more when they stand.
template <class visit_fn>
void for_each_in_both(const obj_list& stream, const cell_node& node, const visit_fn& visit)
{
    const cell_half low = half_of(node, node.level, false);
    const cell_half high = half_of(node, node.level, true);
    for (std::uint32_t i = 0; i < stream.count; ++i) {
        const aabb& box = box_of(stream.items[i]);
        const obj_h o = folded_obj(stream.items[i]);
        if (o && touches_half(low, box) && touches_half(high, box)) visit(o);
    }
}

// Where a child's stream is made, before its length is known; kept for the next one.
bool reserve_scratch(std::uint32_t count)
{
    if (count <= the_fold.scratch_count) return true;
    the_fold.scratch_count = 0;
    if (!heap_renew(&the_fold.scratch, count)) return false;
    the_fold.scratch_count = count;
    return true;
}

// Null when memory ran out.
obj_h* copy_of_scratch(std::uint32_t count)
{
    auto* const stream = heap_array<obj_h>(count);
    if (stream && count) std::memcpy(stream, the_fold.scratch, sizeof(obj_h) * count);
    return stream;
}

// Gives a child, which is an empty leaf yet, its part of the node's stream.
bool hand_down(const cell_node& node, std::uint32_t split, bool high)
{
    const cell_half half = half_of(node, node.level, high);
    const stream_head divided =
        divide_stream(head_of(node), node.list.items, split, half, box_of, the_fold.scratch);
    const stream_head head = drop_outlived(divided, the_fold.scratch);
    obj_h* const stream = copy_of_scratch(head.count);
    if (stream) settle_child(&rec(high ? node.high : node.low), head, stream);
    return stream != nullptr;
}

// Makes the halves; the node keeps its stream.
bool divide(node_h n)
{
    cell_node& node = rec(n);
    const stream_head in = head_of(node);
    if (!reserve_scratch(in.count) || !cell_halve(n, in.level)) return false;
    const std::uint32_t split = split_length_of(in, node.list.items);
    if (!hand_down(node, split, false) || !hand_down(node, split, true)) {
        cell_forget_halves(n);
        return false;
    }
    if (the_fold.named) for_each_in_both(node.list, node, [](obj_h o) { cell_obj_ref(o); });
    return true;
}

} // namespace

bool cell_unfold(node_h n)
{
    obj_list stream;
    if (!cell_unfold_for_now(n, &stream)) return false;
    heap_free(stream.items);
    return true;
}

bool cell_unfold_for_now(node_h n, obj_list* stream)
{
    if (!divide(n)) {
        the_fold.torn = true;
        return false;
    }
    cell_node& node = rec(n);
    *stream = node.list;
    node.list = {};
    node.folded = false;
    return true;
}

void cell_fold_again(node_h n, const obj_list& stream)
{
    cell_node& node = rec(n);
    if (the_fold.named) for_each_in_both(stream, node, [](obj_h o) { cell_obj_release(o); });
    cell_forget_halves(n);
    node.list = stream;
    node.folded = true;
}

bool tree_is_torn()
{
    return the_fold.torn;
}

stage_result unless_torn(std::int32_t* err)
{
    if (!the_fold.torn) return stage_ok;
    *err = err_no_memory;
    return stage_failed;
}

bool folded_has_unseen(const cell_node& node, std::uint32_t stamp)
{
    return any_folded(node, [stamp](obj_h o) { return rec(o).stamp != stamp; });
}

void cell_fold(node_h n, const stream_head& in, obj_h* stream)
{
    cell_node& node = rec(n);
    node.list = {stream, in.count, in.count};
    node.level = static_cast<std::uint8_t>(in.level);
    node.handed_down = in.handed_down;
    node.folded = true;
}

void fold_keep(aabb* boxes, std::uint32_t count)
{
    the_fold.boxes = boxes;
    the_fold.count = the_fold.filled = count;
}

void fold_name(obj_h* objs)
{
    the_fold.objs = objs;
    the_fold.named = true;
}

void fold_free()
{
    const bool torn = the_fold.torn;
    heap_free(the_fold.scratch);
    heap_free(the_fold.boxes);
    heap_free(the_fold.objs);
    heap_free(the_fold.gone_at);
    the_fold = {};
    the_fold.torn = torn;
}

obj_h fold_entry_of(const cell_node& node, obj_h obj)
{
    for (std::uint32_t i = 0; i < node.list.count; ++i)
        if (folded_obj(node.list.items[i]) == obj) return node.list.items[i];
    return {};
}

void fold_take_out(cell_node* node, obj_h obj, bool* gone)
{
    if (!any_folded(*node, [obj](obj_h o) { return o != obj; })) forget_stream(node);
    *gone = cell_obj_release(obj);
}

void fold_forget(obj_h entry)
{
    the_fold.objs[entry.i - 1] = {};
    note_gone(entry);
}

void fold_drop_stamped(cell_node* node, std::uint32_t stamp)
{
    bool any_left = false;
    for (std::uint32_t i = 0; i < node->list.count; ++i) {
        const obj_h o = folded_obj(node->list.items[i]);
        if (!o) continue;
        if (rec(o).stamp == stamp) {
            cell_obj_release(o);
        } else {
            any_left = true;
        }
    }
    if (!any_left) forget_stream(node);
}

void fold_forget_stamped(std::uint32_t stamp)
{
    for (std::uint32_t k = 0; the_fold.named && k < the_fold.count; ++k)
        if (the_fold.objs[k] && rec(the_fold.objs[k]).stamp == stamp) fold_forget({k + 1});
}

void fold_release(cell_node* node)
{
    for (std::uint32_t i = 0; the_fold.named && i < node->list.count; ++i)
        if (const obj_h o = folded_obj(node->list.items[i])) cell_obj_release(o);
    forget_stream(node);
}

} // namespace velmora
