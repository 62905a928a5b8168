// mesh/tree_renew.h - many objects into the tree at once: those that it has, or those of a reader.
#pragma once

#include "mesh/context.h"

namespace velmora {

enum renew_result {
    renew_done,
    renew_declined, ///< the root's box is no box of finite numbers; nothing has happened
    renew_no_memory ///< the mesh is only good for being freed
};

/// Makes the root one empty leaf and adds all objects again, in the reverse of the order in which a
/// walk meets them: with the exact boxes of their triangles, an identity where one is missing, and
/// no plane class. What the insert hook refuses then, or what lies outside of the root, dies. In
/// the end takes out, as tr_remove_objs does, all triangles that have a vertex twice. Only the tree
/// may hold objects.
[[nodiscard]] renew_result tree_renew(mesh_ctx* ctx);

/// Adds all of `objs`, each listed once, with their boxes, to the tree, which is one empty leaf: an
/// identity where one is missing, and no plane class. What the insert hook refuses, or what lies
/// outside of the root, is held by the caller alone.
/// @return renew_declined also when a box holds nothing and may yet touch the root
[[nodiscard]] renew_result tree_add_all(const obj_list& objs, mesh_ctx* ctx);

} // namespace velmora
