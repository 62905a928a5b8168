// mesh/soup.h - triangles as a reader meets them: corners without neighbours, in the order of the
// file, before they become records.
//
// Each position is kept once, and corners name it by number. Two corners have the same position
// when their coordinates are the same bits. So the soup knows what the merge of vertices would have
// to find out by comparing all corners in each leaf of the tree.
#pragma once

#include "mesh/context.h"
#include "mesh/records.h"

#include <cstdint>

namespace velmora {

constexpr std::uint32_t k_soup_ahead = 48; ///< corners that wait for their slots to be fetched

/// All zero is the empty soup.
struct tr_soup {
    std::uint32_t* corners; ///< three places for each triangle; owned
    std::uint32_t count;    ///< triangles
    std::uint32_t capacity;
    float* places; ///< three coordinates for each place; owned
    std::uint32_t place_count;
    std::uint32_t place_capacity;
    std::uint32_t* slots;         ///< hash of the positions: a place plus 1, 0 free; owned
    std::uint32_t slot_count;     ///< a power of two, or 0
    float ahead[k_soup_ahead][3]; ///< the last corners added, which have no places yet
    std::uint32_t hashes[k_soup_ahead];
    std::uint32_t ahead_count;
};

/// Position of corner `i` of triangle `t`.
inline const float* soup_pos(const tr_soup& soup, std::uint32_t t, std::uint32_t i)
{
    return soup.places + std::size_t{3} * soup.corners[std::size_t{3} * t + i];
}

/// Appends a triangle with these corners; false when memory ran out, and the soup is then only good
/// for being freed. The last triangles get their places later.
[[nodiscard]] bool soup_add(tr_soup* soup, const float (*corners)[3]);

/// Gives the last triangles their places: after the last soup_add, before anything else.
void soup_finish(tr_soup* soup);

/// Gives all memory back; the soup is then empty.
void soup_free(tr_soup* soup);

} // namespace velmora
