// mesh/soup_spacing.h - which places of a soup the merge of vertices may have to do with.
#pragma once

#include "mesh/soup.h"

#include <cstdint>

namespace velmora {

/// Places are left to the merge when they are close to another one, or have more corners than a
/// vertex can count.
enum place_spacing {
    places_apart,  ///< the merge gives each place one vertex
    places_mixed,  ///< the same for all places but those that are left to it
    places_unknown ///< any place may have to be left to it
};

/// Compares all places that share a neighbourhood. Two are close when merge_tol may make them
/// equal.
/// @param[out] close  places_mixed: by place, 1 where it is left to the merge; owned by the caller.
///                    Else null
/// @return places_unknown also when memory ran out, and where so many places are close together
/// that comparing them takes long
[[nodiscard]] place_spacing soup_spacing(const tr_soup& soup, std::uint8_t** close);

} // namespace velmora
