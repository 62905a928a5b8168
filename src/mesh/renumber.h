// mesh/renumber.h - puts the records into the order of the tree.
//
// Every stage walks over the tree, and to what lies next to a triangle lies near in the tree. With
// handles in the order in which a walk meets the objects, all walks run through memory from front
// to back, and the slots of what has died since the last time go back to the heap.
#pragma once

#include "mesh/context.h"

namespace velmora {

/// Which vertices get new handles, too.
enum renumber_scope {
    renumber_all,          ///< all: nobody but triangles holds vertices
    renumber_keep_vertices ///< none: somebody outside the mesh holds some
};

/// Gives the objects and triangles of the tree, and perhaps their vertices, new handles in the
/// order of a walk over the tree, and gives back the memory that is no longer needed. Links to dead
/// triangles become none. Only the tree may hold objects and triangles; all other handles are void.
/// Where triangles carry cold parts everything stays as it is, and so do the records for which
/// there is no memory to move them: order is never needed for a result.
void renumber_mesh(renumber_scope scope, mesh_ctx* ctx);

} // namespace velmora
