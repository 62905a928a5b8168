// tests/repair/linked.h - meshes with their links, and the solids that many tests begin with.
#pragma once

#include "mesh/cell_tree.h"
#include "mesh/measure.h"
#include "mesh/vec.h"
#include "mesh_fixture.h"

#include <cstdlib>
#include <vector>

namespace velmora {

/// Links the triangles of every edge, and gives all their normals.
inline void link_with_normals(mesh_fixture* m)
{
    m->link_all();
    for (const tr_h t : m->trs)
        tr_recompute_nrm(&rec(t), true, nullptr);
}

/// Limits for what is inserted from now on: leaves that are longer split then, under the feet of
/// whoever walks them.
inline void set_limits(mesh_fixture* m, std::uint32_t list_len, std::uint32_t level)
{
    m->ctx.max_list = list_len;
    m->ctx.max_level = level;
}

/// Gives the tree these limits and puts all triangles in anew.
inline void split_finely(mesh_fixture* m, std::uint32_t list_len, std::uint32_t level)
{
    set_limits(m, list_len, level);
    for (const tr_h t : m->trs) {
        const obj_h o = cell_obj_ref(rec(t).cell);
        const aabb box = rec(o).box;
        tree_remove(o, &m->ctx);
        rec(o).box = box;
        if (!tree_add(o, nullptr, &m->ctx)) std::abort();
        cell_obj_release(o);
    }
}

/// Whether `a` and `b` run every edge between them in opposite directions.
inline bool wound_alike(const tr_rec& a, const tr_rec& b)
{
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            if (a.vtx[i] == b.vtx[j] && a.vtx[next3(i)] == b.vtx[next3(j)]) return false;
    return true;
}

struct solid {
    std::vector<mesh_fixture::point> points;
    std::vector<mesh_fixture::corners> trs;
};

/// Adds an axis-parallel cube of twelve triangles around `center`, wound outwards or inwards.
inline void add_cube(solid* s, mesh_fixture::point center, float half, bool outwards)
{
    const int first = static_cast<int>(s->points.size());
    for (int i = 0; i < 8; ++i)
        s->points.push_back({center[0] + (i & 1 ? half : -half), center[1] + (i & 2 ? half : -half),
                             center[2] + (i & 4 ? half : -half)});
    const int faces[6][4] = {{0, 2, 3, 1}, {4, 5, 7, 6}, {0, 1, 5, 4},
                             {2, 6, 7, 3}, {0, 4, 6, 2}, {1, 3, 7, 5}};
    for (const int* f : faces) {
        const int in = outwards ? 0 : 1;
        s->trs.push_back({first + f[0], first + f[1 + in], first + f[2 - in]});
        s->trs.push_back({first + f[0], first + f[2 + in], first + f[3 - in]});
    }
}

/// Volume inside the triangles from `first` on, `count` of them; negative when wound inwards.
inline double volume(const mesh_fixture& m, std::size_t first, std::size_t count)
{
    double sum = 0.0;
    for (std::size_t i = first; i < first + count; ++i) {
        const tr_rec& tr = rec(m.trs[i]);
        float n[3];
        vec_cross(corner_pos(tr, 1), corner_pos(tr, 2), n);
        sum += vec_dot(corner_pos(tr, 0), n);
    }
    return sum / 6.0;
}

/// A flat sheet of 2 `cells` x `cells` triangles at height z, all turned upwards; cells of size 1.
inline void add_sheet(solid* s, int cells, float z)
{
    const int first = static_cast<int>(s->points.size());
    const int row = cells + 1;
    for (int y = 0; y < row; ++y)
        for (int x = 0; x < row; ++x)
            s->points.push_back({static_cast<float>(x), static_cast<float>(y), z});
    for (int y = 0; y < cells; ++y)
        for (int x = 0; x < cells; ++x) {
            const int at = first + y * row + x;
            s->trs.push_back({at, at + 1, at + row + 1});
            s->trs.push_back({at, at + row + 1, at + row});
        }
}

} // namespace velmora
