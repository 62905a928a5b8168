// mesh/large_block.h - how the system is asked to back large blocks of memory.
//
// Records are met at random over hundreds of megabytes. With pages of four kilobytes that costs a
// page fault for each first touch and a miss of the address cache for most others; with large pages
// next to nothing. And what one stage needs should not stay when the next one needs something else.
#pragma once

#include <cstddef>

namespace velmora {

/// Once per process, before the first block: blocks from a megabyte on are given back to the system
/// when they are freed. Does nothing where the library has no such setting.
void prepare_large_blocks();

/// Asks for large pages behind a block that is large enough; others are left alone. A refusal is no
/// matter.
void back_large_block(void* memory, std::size_t size);

} // namespace velmora
