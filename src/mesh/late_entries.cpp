#include "mesh/late_entries.h"

#include <algorithm>
#include <cmath>

namespace velmora {

namespace {

constexpr std::uint32_t k_stays = 0xFFFFFFFFu;

std::uint32_t number_of(obj_h entry)
{
    return entry.i - 1;
}

// What arrived by itself does so in the order of the insertions.
bool ends_late(const stream_head& in, const obj_h* stream)
{
    return in.count > in.handed_down && number_of(stream[in.count - 1]) >= the_fold.filled;
}

bool is_plain_box(const aabb& box)
{
    for (int i = 0; i < 3; ++i)
        if (!std::isfinite(box.min[i]) || !std::isfinite(box.max[i]) || box.min[i] > box.max[i])
            return false;
    return true;
}

// From now on it is known when an object leaves; what has gone by now was gone before the next.
bool start_clock()
{
    const std::uint32_t count = the_fold.count;
    the_fold.gone_at = heap_array<std::uint32_t>(count);
    if (!the_fold.gone_at) return false;
    for (std::uint32_t k = 0; k < count; ++k)
        the_fold.gone_at[k] = the_fold.objs[k] ? k_stays : count;
    the_fold.capacity = count;
    return true;
}

template <class item_t> bool grow(item_t** items, std::uint32_t capacity)
{
    void* const grown = heap_realloc(*items, sizeof(item_t) * std::size_t{capacity});
    if (grown) *items = static_cast<item_t*>(grown);
    return grown != nullptr;
}

bool make_room()
{
    if (!the_fold.gone_at && !start_clock()) return false;
    if (the_fold.count < the_fold.capacity) return true;
    const std::uint32_t more = the_fold.capacity + the_fold.capacity / 4 + 16;
    if (!grow(&the_fold.boxes, more) || !grow(&the_fold.objs, more) ||
        !grow(&the_fold.gone_at, more))
        return false;
    the_fold.capacity = more;
    return true;
}

bool make_entry(obj_h obj, obj_h* entry)
{
    if (!make_room()) return false;
    const std::uint32_t k = the_fold.count++;
    the_fold.boxes[k] = rec(obj).box;
    the_fold.objs[k] = obj;
    the_fold.gone_at[k] = k_stays;
    *entry = {k + 1};
    return true;
}

std::uint32_t length_at(std::uint32_t number, const obj_h* stream, std::uint32_t end)
{
    std::uint32_t length = 0;
    for (std::uint32_t i = 0; i < end; ++i)
        length += is_there_at(stream[i], number);
    return length;
}

// The late entry that finds the list full. How long it is has to be counted again only when so many
// have come as it was short of.
std::uint32_t late_split(const stream_head& in, const obj_h* stream, std::uint32_t first)
{
    const tree_limits& limits = the_fold.limits;
    std::uint32_t step = 0;
    std::uint32_t full_at = 0; // not before that entry
    for (std::uint32_t i = first; i < in.count; ++i) {
        const std::uint32_t number = number_of(stream[i]);
        step = steps_before(number, limits, step);
        const std::uint32_t longest = limits.max_list[step];
        if (in.level >= limits.max_level[step] || i < longest || i < full_at) continue;
        const std::uint32_t length = length_at(number, stream, i);
        if (length >= longest) return i;
        full_at = i + (longest - length);
    }
    return in.count;
}

} // namespace

bool may_come_late(const cell_node& node, const aabb& box, const mesh_ctx& ctx)
{
    return the_fold.named && node.list.count < ctx.grow_limit && is_plain_box(box);
}

bool fold_add(cell_node* node, obj_h obj, obj_h* entry)
{
    if (!*entry && !make_entry(obj, entry)) return false;
    obj_list* const stream = &node->list;
    if (stream->count == stream->capacity &&
        !list_reserve(stream, stream->count + stream->count / 4 + 16))
        return false;
    stream->items[stream->count++] = *entry;
    cell_obj_ref(obj);
    return true;
}

void fold_note_growth(const mesh_ctx& ctx)
{
    if (!the_fold.named) return;
    tree_limits& limits = the_fold.limits;
    limits.times[limits.steps++] = std::int64_t{the_fold.count} - 1;
    limits.max_level[limits.steps] = ctx.max_level;
    limits.max_list[limits.steps] = ctx.max_list;
}

void note_gone(obj_h entry)
{
    if (the_fold.gone_at) the_fold.gone_at[number_of(entry)] = the_fold.count;
}

// Numbers ascend behind what was handed down, which came early if the first of these did.
std::uint32_t early_count(const stream_head& in, const obj_h* stream)
{
    if (!the_fold.gone_at) return in.count;
    const auto came_early = [](obj_h entry) { return number_of(entry) < the_fold.filled; };
    const obj_h* const own = stream + in.handed_down;
    const obj_h* const end = stream + in.count;
    const obj_h* const late = own != end && came_early(*own)
                                  ? std::partition_point(own, end, came_early)
                                  : std::find_if_not(stream, end, came_early);
    return static_cast<std::uint32_t>(late - stream);
}

std::uint32_t least_late_split()
{
    return the_fold.limits.max_list[steps_before(the_fold.filled, the_fold.limits)];
}

stream_head drop_outlived(const stream_head& in, obj_h* stream)
{
    if (!ends_late(in, stream)) return in;
    std::uint32_t last_goes = 0; // of those so far
    std::uint32_t first = 0;
    for (std::uint32_t i = 0; i < in.count; ++i) {
        const std::uint32_t number = number_of(stream[i]);
        if (i >= in.handed_down && last_goes <= number) first = i;
        last_goes = std::max(last_goes, the_fold.gone_at[number]);
    }
    if (first == 0) return in;
    std::copy(stream + first, stream + in.count, stream);
    return {in.level, in.count - first, 0};
}

std::uint32_t split_length_of(const stream_head& in, const obj_h* stream)
{
    const auto number_at = [stream](std::uint32_t i) { return number_of(stream[i]); };
    if (!ends_late(in, stream)) return split_length(the_fold.limits, in, number_at);
    if (in.level >= the_fold.limits.max_level[the_fold.limits.steps]) return in.count;
    std::uint32_t first = in.handed_down;
    while (number_at(first) < the_fold.filled)
        ++first;
    const std::uint32_t split =
        split_length(the_fold.limits, {in.level, first, in.handed_down}, number_at);
    return split < first ? split : late_split(in, stream, first);
}

} // namespace velmora
