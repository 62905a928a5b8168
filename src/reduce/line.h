// reduce/line.h - vertices on a crease: the one straight feature line through them, if there is
// one.
#pragma once

#include "reduce/validity.h"

namespace velmora {

/// Takes the vertex out along its feature line when exactly one straight sharp line passes through
/// it and a move along it passes all tests. A vertex that stays is locked.
/// @return whether it went
bool remove_line(const vtx_site& site);

} // namespace velmora
