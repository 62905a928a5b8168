// repair/replant.h - how a repair puts triangles into the tree that it has made or moved.
#pragma once

#include "mesh/context.h"

namespace velmora {

/// Gives `obj`, which must not be in the tree, the box of its triangle widened by merge_tol, gives
/// the triangle an identity if it has none, and adds the object to the tree. May split leaves. What
/// the insert hook refuses is not added.
/// @return false when memory ran out; the object may then stand in part of its leaves
[[nodiscard]] bool replant_obj(obj_h obj, mesh_ctx* ctx);

/// Wraps `tr` in an object of its own, with a reference, and replants that.
/// @return the object, or none when memory ran out
[[nodiscard]] obj_h plant_tr(tr_h tr, mesh_ctx* ctx);

} // namespace velmora
