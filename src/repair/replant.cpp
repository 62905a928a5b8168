#include "repair/replant.h"

#include "mesh/box.h"
#include "mesh/cell_tree.h"

namespace velmora {

bool replant_obj(obj_h o, mesh_ctx* ctx)
{
    cell_obj& obj = rec(o);
    obj.box = box_of_tr(rec(obj.tr));
    box_widen(&obj.box, static_cast<double>(merge_tol));
    tr_assign_id(o, false, ctx);
    return tree_add(o, nullptr, ctx);
}

obj_h plant_tr(tr_h t, mesh_ctx* ctx)
{
    const obj_h o = cell_obj_new();
    if (!o) return o;
    rec(o).tr = tr_ref(t);
    rec(t).cell = o;
    return replant_obj(o, ctx) ? o : obj_h{};
}

} // namespace velmora
