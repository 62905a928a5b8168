#include "repair/tr_queue.h"

#include <cstring>

namespace velmora {

static constexpr std::uint32_t k_first_capacity = 8;

// The part of the ring before `head` moves behind the old end, so that the entries stay in a row.
static bool tr_queue_grow(tr_queue* q)
{
    const std::uint32_t capacity = q->capacity ? q->capacity * 2 : k_first_capacity;
    if (capacity == 0) return false;
    void* grown = heap_realloc(q->cells, sizeof(tr_h) * capacity);
    if (!grown) return false;
    q->cells = static_cast<tr_h*>(grown);
    std::memcpy(q->cells + q->capacity, q->cells, sizeof(tr_h) * q->head);
    q->capacity = capacity;
    return true;
}

bool tr_queue_push(tr_queue* q, tr_h tr)
{
    if (q->count == q->capacity && !tr_queue_grow(q)) return false;
    q->cells[(q->head + q->count) & (q->capacity - 1)] = tr;
    ++q->count;
    return true;
}

bool tr_queue_push_front(tr_queue* q, tr_h tr)
{
    if (q->count == q->capacity && !tr_queue_grow(q)) return false;
    q->head = (q->head - 1) & (q->capacity - 1);
    q->cells[q->head] = tr;
    ++q->count;
    return true;
}

tr_h tr_queue_pop(tr_queue* q)
{
    if (q->count == 0) return {};
    const tr_h tr = q->cells[q->head];
    q->head = (q->head + 1) & (q->capacity - 1);
    --q->count;
    return tr;
}

void tr_queue_clear(tr_queue* q)
{
    q->count = q->head = 0;
}

void tr_queue_free(tr_queue* q)
{
    heap_free(q->cells);
    *q = {};
}

} // namespace velmora
