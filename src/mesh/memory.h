// mesh/memory.h - where all memory comes from, and how its running out is reported and rehearsed.
//
// Two doors to one heap. heap_* is silent: the caller decides what a failure means; the records of
// the mesh come from there, through their pools. mm_* clears what it hands out, asks the low-memory
// hooks before it gives up, and then says so in the log; the growing tables and the streams use it.
// Nothing here throws. A size of 0 gives null from both. Memory belongs to whoever asked for it.
#pragma once

#include <cstddef>
#include <cstdint>

namespace velmora {

/// Fresh memory of unspecified content, aligned for any scalar, or null.
[[nodiscard]] void* heap_alloc(std::size_t size);

/// Resizes `memory` (null allowed); what both sizes cover is kept. On failure null, and `memory`
/// stands as it was.
[[nodiscard]] void* heap_realloc(void* memory, std::size_t new_size);

/// heap_alloc for `count` items, which are plain data; never of size 0.
template <class item_t> [[nodiscard]] item_t* heap_array(std::size_t count)
{
    return static_cast<item_t*>(heap_alloc(sizeof(item_t) * (count ? count : 1)));
}

/// Gives `memory` back; null is allowed.
void heap_free(void* memory);

/// Room for `count` items in the place of what was there, which is given back with its content;
/// false, and null, when memory ran out.
template <class item_t> [[nodiscard]] bool heap_renew(item_t** items, std::size_t count)
{
    heap_free(*items);
    *items = heap_array<item_t>(count);
    return *items != nullptr;
}

/// Rehearsal of exhaustion: of the calls from now on, number `nth` (1 is the next) fails, once.
/// 0 switches it off. Counts over all doors, retries included.
void heap_fail_nth(std::uint64_t nth);

/// Calls since the last heap_fail_nth, so that a test knows when it has walked past the end.
std::uint64_t heap_calls();

/// Blocks that are out: handed out by any door and not given back.
std::uint64_t heap_blocks();

/// Asks for memory that somebody could spare; returns whether anything was given back.
using low_memory_hook = bool (*)(void* arg);

/// Registers a hook for mm_malloc and mm_realloc; false when the table is full.
bool mm_add_hook(low_memory_hook hook, void* arg);

/// Forgets all hooks.
void mm_clear_hooks();

/// Cleared memory, or null after "mm_malloc: no more memory available" in the log. Null without a
/// word for a size of 0. Free with heap_free.
[[nodiscard]] void* mm_malloc(std::size_t size);

/// Resizes `memory` (null allowed) and clears what lies behind `old_size`. On failure null after
/// "mm_realloc: no more memory available", and `memory` stands as it was.
[[nodiscard]] void* mm_realloc(void* memory, std::size_t old_size, std::size_t new_size);

} // namespace velmora
