// repair/tr_queue.h - first-in-first-out queue of triangles, which also takes one at the front.
//
// A queue holds no references. All zero is the empty queue; it takes memory with the first push and
// keeps it until tr_queue_free.
#pragma once

#include "mesh/records.h"

#include <cstdint>

namespace velmora {

/// A ring: the entries follow `head`, around the end of the run.
struct tr_queue {
    tr_h* cells;            ///< the ring; owned
    std::uint32_t count;    ///< entries
    std::uint32_t capacity; ///< room in `cells`, a power of two or 0
    std::uint32_t head;     ///< place of the entry that is next to go
};

/// Appends `tr`; false when memory ran out, and the queue stands.
[[nodiscard]] bool tr_queue_push(tr_queue* q, tr_h tr);

/// Puts `tr` before all others; false when memory ran out, and the queue stands.
[[nodiscard]] bool tr_queue_push_front(tr_queue* q, tr_h tr);

/// Takes the first entry out; none when the queue is empty.
tr_h tr_queue_pop(tr_queue* q);

/// The entry at `place` counted from the head, below `count`.
inline tr_h tr_queue_at(const tr_queue& q, std::uint32_t place)
{
    return q.cells[(q.head + place) & (q.capacity - 1)];
}

/// Empties the queue and keeps its memory.
void tr_queue_clear(tr_queue* q);

/// Empties the queue and gives its memory back.
void tr_queue_free(tr_queue* q);

} // namespace velmora
