#include "plg/tr_edges.h"

#include "mesh/measure.h"
#include "mesh/vec.h"

#include <cstdio>

namespace velmora {

namespace {

bool edge_is_free(const tr_rec& tr, int i)
{
    return !live_nbr(tr, i);
}

plg_point point_of_corner(tr_h t, int k)
{
    const float* pos = corner_pos(rec(t), k);
    return {{pos[0], pos[1], pos[2]}, cold(t).corner_val[k], k_traced_point};
}

// The boundary runs over edge k, and over edge k + 1 as well when both are open.
bool add_first_points(obj_h obj, plg_rec* plg)
{
    const tr_h t = rec(obj).tr;
    const tr_rec& tr = rec(t);
    const int nbrs = tr_nbr_count(tr);
    if (nbrs == 0) {
        std::fputs("add_first_points: ERROR, impossible condition\n", stderr);
        return false;
    }
    if (nbrs == 3) {
        std::fputs("add_first_points: ERROR, triangle has three neighbors\n", stderr);
        return false;
    }
    int k = 0;
    while (!edge_is_free(tr, k) || (nbrs == 1 && !edge_is_free(tr, next3(k))))
        ++k;
    if (!plg_add_point(plg, point_of_corner(t, k))) return false;
    for (int added = nbrs; added < 3; ++added) {
        k = next3(k);
        if (!plg_add_point(plg, point_of_corner(t, k)) || !plg_add_seg(plg, obj)) return false;
    }
    return true;
}

bool add_corner(obj_h obj, int k, plg_direction direction, plg_rec* plg)
{
    const plg_point point = point_of_corner(rec(obj).tr, k);
    if (direction == plg_at_end) return plg_add_point(plg, point) && plg_add_seg(plg, obj);
    return plg_insert_point(plg, point) && plg_insert_seg(plg, obj);
}

int corner_at(const tr_rec& tr, const float* p)
{
    for (int k = 0; k < 3; ++k)
        if (pts_equal(corner_pos(tr, k), p)) return k;
    return -1;
}

//       b         Edges have the name of the corner that they leave, going round. From k the
//      / \        boundary leaves forward, over the edges k, a and b, or backward, over b and
//     /   \       then a, as far as they are open.
//    k-----a
bool add_tr_edges_to_plg(obj_h obj, plg_direction direction, plg_rec* plg)
{
    const tr_rec& tr = rec(rec(obj).tr);
    const std::uint32_t end = direction == plg_at_end ? plg->points.count - 1 : 0;
    const int k = corner_at(tr, plg->points[end].pnt);
    if (k < 0) return true;
    const int a = next3(k);
    const int b = prev3(k);
    if (edge_is_free(tr, k)) {
        if (!add_corner(obj, a, direction, plg)) return false;
        if (!edge_is_free(tr, a)) return true;
        if (!add_corner(obj, b, direction, plg)) return false;
        if (!edge_is_free(tr, b)) return true;
        std::fputs("add_tr_edges_to_plg: ERROR, self intersecting polygon\n", stderr);
        return add_corner(obj, k, direction, plg);
    }
    if (!edge_is_free(tr, b)) return true;
    if (!add_corner(obj, b, direction, plg)) return false;
    if (!edge_is_free(tr, a)) return true;
    return add_corner(obj, a, direction, plg);
}

} // namespace

bool corner_one_free(const tr_rec& tr, int k)
{
    return edge_is_free(tr, k) != edge_is_free(tr, prev3(k));
}

bool plg_add_tr(obj_h obj, plg_direction direction, plg_rec* plg, mesh_ctx* ctx)
{
    rec(obj).stamp = ctx->visit_stamp;
    if (direction == plg_first) return add_first_points(obj, plg);
    return add_tr_edges_to_plg(obj, direction, plg);
}

} // namespace velmora
