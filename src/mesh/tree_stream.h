// mesh/tree_stream.h - how the stream of objects that arrives at a cell divides between its halves.
//
// A leaf keeps what arrives until it is full. Then it hands its list down, which a walk over the
// list turns around, and from then on whatever arrives. So the stream of objects that a child sees
// is its parent's with the entries before the split turned around, less those that miss the child,
// and a leaf's list is its stream.
#pragma once

#include "mesh/cell_tree.h"
#include "mesh/tree_growth.h"

#include <cstdint>

namespace velmora {

/// What is known of a stream beside its entries.
struct stream_head {
    std::uint32_t level; ///< of the cell
    std::uint32_t count;
    std::uint32_t handed_down; ///< of them, the first, came with the parent's split
};

/// How many entries the cell's list has when it splits; all of them when it never does.
/// @param number_at  the number of the insertion of an entry; ascending from those handed down on
template <class number_fn>
std::uint32_t split_length(const tree_limits& limits, const stream_head& in,
                           const number_fn& number_at)
{
    if (in.level >= limits.max_level[limits.steps]) return in.count;
    const std::uint32_t from =
        in.handed_down > limits.max_list[0] ? in.handed_down : limits.max_list[0];
    std::uint32_t s = 0; // steps of the limits before the insertion
    for (std::uint32_t i = from; i < in.count; ++i) {
        s = steps_before(number_at(i), limits, s);
        if (i >= limits.max_list[s] && in.level < limits.max_level[s]) return i;
        if (limits.steps == 0) break;
    }
    return in.count;
}

/// One half of a cell. Its other faces are the cell's, which all of the stream touches anyway.
struct cell_half {
    bool high;
    std::uint32_t axis;
    float cut;
};

/// That of a node with children.
inline cell_half half_of(const cell_node& node, std::uint32_t level, bool high)
{
    const std::uint32_t axis = level % 3;
    return {high, axis, rec(node.low).box.max[axis]};
}

inline bool touches_half(const cell_half& half, const aabb& box)
{
    return half.high ? !(half.cut > box.max[half.axis]) : !(box.min[half.axis] > half.cut);
}

/// The stream of one half, into `to`, which has room for as many as come in.
/// @param split   length of the list at the split
/// @param box_of  the box of an entry
template <class item_t, class box_fn>
stream_head divide_stream(const stream_head& in, const item_t* from, std::uint32_t split,
                          const cell_half& half, const box_fn& box_of, item_t* to)
{
    std::uint32_t count = 0;
    const auto take = [&](const item_t& item) {
        to[count] = item;
        count += touches_half(half, box_of(item));
    };
    for (std::uint32_t i = split; i-- > 0;)
        take(from[i]);
    const std::uint32_t handed_down = count;
    for (std::uint32_t i = split; i < in.count; ++i)
        take(from[i]);
    return {in.level + 1, count, handed_down};
}

} // namespace velmora
