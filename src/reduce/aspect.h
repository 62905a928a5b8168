// reduce/aspect.h - mode 4: vertices go where that mends badly shaped triangles.
#pragma once

#include "reduce/validity.h"

namespace velmora {

/// Takes the vertex out when its fan holds a bad triangle and some neighbour, tried in the order of
/// the deviation it causes, makes the fan better within the distance tolerance.
/// @return whether it went
bool remove_aspect(const vtx_site& site);

} // namespace velmora
