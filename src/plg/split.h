// plg/split.h - takes polygons that touch themselves apart.
//
// A polygon that comes to a point a second time, at least two steps after the first and before its
// own end, is cut there: the loop between becomes a polygon of its own, the rest closes up. This
// goes on until no polygon has such a point. Points are equal by exact coordinates.
#pragma once

#include "plg/plg.h"

#include <cstdint>

namespace velmora {

/// Splits every polygon of the list. Its first repeat (the lowest point, then its nearest repeat)
/// is cut first, then the loop is split, then the rest. Each cut puts the rest and then the loop in
/// front of the whole list; what needs no cut keeps its place.
/// @param[in,out] count  raised by one for each cut
/// @return false when memory ran out; some polygons may then have been split, each as a whole, and
///         the list is sound
[[nodiscard]] bool plg_split_all(plg_cell** head, std::int32_t* count);

} // namespace velmora
