// fuzz/stl_roads.h - one STL input read on several roads that must lead to the same triangles.
#pragma once

#include "files/stl_stream.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace velmora {

/// How the bytes reach the reader.
enum class stl_road {
    blocks,  ///< from a file: tokens and records are taken from the block whole
    counted, ///< from a file with a progress hook, which has every byte read on its own
    pieces,  ///< through the io hook, in pieces of changing length
};

/// What is asked of the reader.
struct stl_wish {
    std::uint32_t format;    ///< stl_format
    std::uint32_t keep_attr; ///< attribute words are delivered
    bool skip_attr;          ///< or say how many bytes to pass over
    bool filter;             ///< large triangles are dropped
};

/// All that a caller sees of a reading.
struct stl_reading_seen {
    std::vector<stl_tri> tris;
    std::vector<int> results; ///< of each call, the last one is 0
    std::uint32_t error;
    std::uint32_t filtered;
    char id[k_stl_header_size + 1];
    float bbox[6];
};

stl_reading_seen read_stl(const std::uint8_t* data, std::size_t size, const stl_wish& wish,
                          stl_road road);

/// Reads on all roads, and demands the same of each; what was seen comes back.
stl_reading_seen read_on_all_roads(const std::uint8_t* data, std::size_t size,
                                   const stl_wish& wish);

/// Writes the triangles, reads them again and demands that nothing has changed that the form can
/// hold.
void demand_round_trip(const std::vector<stl_tri>& tris, std::uint32_t format);

} // namespace velmora
