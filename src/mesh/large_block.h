// mesh/large_block.h - large blocks of memory: how the system backs them, and how they are kept.
//
// Records are met at random over hundreds of megabytes. With pages of four kilobytes that costs a
// page fault for each first touch and a miss of the address cache for most others; with large pages
// next to nothing. And a page that comes from the system is cleared first, which takes longer than
// all that most stages do with it: so what one stage gives back is kept for the next.
#pragma once

#include <cstddef>

namespace velmora {

/// Once per process, before the first block: blocks from a megabyte on get pages of their own.
/// Does nothing where the library has no such setting.
void prepare_large_blocks();

/// Asks for large pages behind a block that is met at random, if it is large enough. A refusal is
/// no matter.
void back_large_block(void* memory, std::size_t size);

/// Keeps a block of the heap that is being given back, if it is large and a few others at most are
/// kept already. The block is then no longer the caller's.
bool keep_large_block(void* memory);

/// One of the kept blocks, made to fit `size` with its pages, or null. The caller owns it like any
/// block of the heap.
void* take_large_block(std::size_t size);

/// Gives all kept blocks back to the system; returns whether there were any.
bool drop_large_blocks();

} // namespace velmora
