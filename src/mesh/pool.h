// mesh/pool.h - records by the hundred thousand, named by 32-bit handles instead of pointers.
//
// A pool keeps the records of one kind in large chunks that never move, so a reference to a record
// stays good until the pool is emptied. Handles are given out in ascending order; 0 names nothing.
// Half the width of a pointer, and no stale handle can reach foreign memory.
#pragma once

#include "mesh/large_block.h"
#include "mesh/memory.h"

#include <cassert>
#include <cstdint>
#include <cstring>

namespace velmora {

/// Names a record of its kind; comparing handles is comparing identities.
template <class rec_t> struct handle {
    std::uint32_t i = 0; ///< place in the pool; 0 none

    explicit operator bool() const
    {
        return i != 0;
    }
    friend bool operator==(handle a, handle b) = default;
};

// Fuzzing takes small chunks: quickly made, and even a small model crosses from one to the next.
#ifdef VELMORA_CHUNK_BITS
constexpr unsigned k_chunk_bits = VELMORA_CHUNK_BITS;
#else
constexpr unsigned k_chunk_bits = 16;
#endif
constexpr std::uint32_t k_chunk_size = 1u << k_chunk_bits;
constexpr std::uint32_t k_max_chunks = 1u << 16; ///< chunks of the usual size hold all handles
constexpr std::size_t k_line = 64;               ///< bytes of a cache line

/// The memory of records.
template <class rec_t> struct pool_chunks {
    rec_t* chunks[k_max_chunks]; ///< aligned to the cache line
    void* blocks[k_max_chunks];  ///< what the heap gave, at the first chunk that lies there
    std::uint32_t count;
};

/// All records of one kind. Records are plain data, given out with unspecified content.
template <class rec_t> struct pool {
    pool_chunks<rec_t> memory;
    std::uint32_t used;      ///< handles given out so far, number 0 included
    std::uint32_t free_head; ///< first of the records that were given back, chained; 0 none
};

template <class rec_t> rec_t& pool_at(const pool<rec_t>& p, handle<rec_t> h)
{
    assert(h.i != 0 && h.i < p.used);
    return p.memory.chunks[h.i >> k_chunk_bits][h.i & (k_chunk_size - 1)];
}

/// Adds `more` chunks in one block: the larger the block, the more of it lies on large pages.
template <class rec_t> bool chunks_add(pool_chunks<rec_t>* c, std::uint32_t more)
{
    if (more > k_max_chunks - c->count) return false;
    const std::size_t size = sizeof(rec_t) * k_chunk_size * more + k_line;
    auto* block = static_cast<unsigned char*>(heap_alloc(size));
    if (!block) return false;
    back_large_block(block, size);
    const std::size_t past_line = reinterpret_cast<std::uintptr_t>(block) % k_line;
    auto* records = reinterpret_cast<rec_t*>(block + (past_line ? k_line - past_line : 0));
    for (std::uint32_t i = 0; i < more; ++i, records += k_chunk_size) {
        c->blocks[c->count] = i == 0 ? block : nullptr;
        c->chunks[c->count++] = records;
    }
    return true;
}

template <class rec_t> void chunks_free(pool_chunks<rec_t>* c)
{
    while (c->count > 0)
        heap_free(c->blocks[--c->count]);
}

/// A record that nobody has, or none when memory ran out.
template <class rec_t> handle<rec_t> pool_take(pool<rec_t>* p)
{
    if (p->free_head) {
        const handle<rec_t> h{p->free_head};
        std::memcpy(&p->free_head, &pool_at(*p, h), sizeof p->free_head);
        return h;
    }
    const std::uint32_t next = p->used ? p->used : 1;
    if (next == 0xFFFFFFFFu) return {};
    if ((next >> k_chunk_bits) >= p->memory.count && !chunks_add(&p->memory, 1)) return {};
    p->used = next + 1;
    return {next};
}

/// Makes room for `more` records at once, which are then taken one by one. It is no failure when
/// there is not that much memory.
template <class rec_t> void pool_reserve(pool<rec_t>* p, std::uint32_t more)
{
    const std::uint64_t end = std::uint64_t{p->used ? p->used : 1} + more;
    const std::uint64_t chunks = (end + k_chunk_size - 1) >> k_chunk_bits;
    if (chunks > p->memory.count && chunks <= k_max_chunks)
        chunks_add(&p->memory, static_cast<std::uint32_t>(chunks) - p->memory.count);
}

/// Takes a record back; its handle may be given out again.
template <class rec_t> void pool_give_back(pool<rec_t>* p, handle<rec_t> h)
{
    rec_t& r = pool_at(*p, h);
#ifdef VELMORA_CHECKED
    std::memset(static_cast<void*>(&r), 0xDD, sizeof r);
#endif
    std::memcpy(static_cast<void*>(&r), &p->free_head, sizeof p->free_head);
    p->free_head = h.i;
}

/// Gives all memory back to the heap; every handle is void.
template <class rec_t> void pool_empty(pool<rec_t>* p)
{
    chunks_free(&p->memory);
    p->used = p->free_head = 0;
}

/// Takes over records that stand in `chunks` from place 1 to place `count`, in the place of all
/// that the pool had.
template <class rec_t>
void pool_replace(pool<rec_t>* p, pool_chunks<rec_t>* chunks, std::uint32_t count)
{
    chunks_free(&p->memory);
    std::memcpy(p->memory.chunks, chunks->chunks, sizeof(rec_t*) * chunks->count);
    std::memcpy(p->memory.blocks, chunks->blocks, sizeof(void*) * chunks->count);
    p->memory.count = chunks->count;
    chunks->count = 0;
    p->used = count + 1;
    p->free_head = 0;
}

} // namespace velmora
