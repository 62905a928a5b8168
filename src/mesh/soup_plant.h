// mesh/soup_plant.h - makes a mesh of a soup: at once, or as a list for building object by object.
#pragma once

#include "mesh/soup.h"

namespace velmora {

enum plant_result {
    plant_done,
    plant_declined, ///< this mesh is to be built object by object
    plant_no_memory
};

enum plant_vertices {
    plant_apart, ///< each corner has a vertex of its own
    plant_welded ///< the corners of a place share one, where no other place is close
};

/// Makes the soup the mesh: the tree under ctx->root, which is one empty leaf, is the same as after
/// adding an object for each triangle, the last one first, with identities in this order and boxes
/// `margin` wider than the triangles. Triangles that are points are left out. ctx->topo->weld tells
/// what is left to the merge. All records are in order. The soup is then empty.
/// @return unless plant_done the soup stays the caller's, perhaps empty; after plant_no_memory the
/// mesh is only good for being freed
[[nodiscard]] plant_result soup_plant(tr_soup* soup, plant_vertices how, double margin,
                                      mesh_ctx* ctx);

/// Makes an object with a triangle and three vertices of its own for each triangle of the soup, the
/// last one in front.
/// @return false when memory ran out; the list stays the caller's
[[nodiscard]] bool soup_to_list(const tr_soup& soup, double margin, obj_list* list);

} // namespace velmora
