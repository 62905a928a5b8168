// reduce/last_nrms.h - which normals of a fan have no equal further on.
//
// Equality within merge_tol is no equivalence: a normal may equal two that are not equal. So
// nothing can be merged; what is asked is only whether some later normal is close. Compared each
// with each, a fan of 65,000 triangles would take a minute.
#pragma once

#include "reduce/vtx_table.h"

namespace velmora {

/// Sets last[k] to whether no triangle behind place k of the fan has a normal that pts_equal takes
/// for that of place k. Degenerate triangles count with the normal that they bear.
void mark_last_nrms(const vtx_fan& fan, bool* last);

/// The same, each compared with each. For small fans, and to check the other.
void mark_last_nrms_plainly(const vtx_fan& fan, bool* last);

} // namespace velmora
