#include "files/model_io.h"

#include "mesh/box.h"
#include "mesh/log.h"
#include "mesh/measure.h"
#include "mesh/vec.h"

namespace velmora {

namespace {

constexpr double k_snap_to_zero = 1e-10; ///< coordinates strictly within this of zero become zero

bool within_kill(const float* pt)
{
    for (int i = 0; i < 3; ++i)
        if (std::fabs(static_cast<double>(pt[i])) > kill_value) return false;
    return true;
}

// Scale first, then shift.
void transform_in(const coord_transform& how, float* pt)
{
    for (int i = 0; i < 3 && how.scale_on; ++i)
        pt[i] = static_cast<float>(static_cast<double>(pt[i]) * how.scale[i]);
    for (int i = 0; i < 3 && how.shift_on; ++i)
        pt[i] = static_cast<float>(static_cast<double>(pt[i]) - how.shift[i]);
}

void snap_to_zero(float* pt)
{
    for (int i = 0; i < 3; ++i) {
        const double c = static_cast<double>(pt[i]);
        if (c > -k_snap_to_zero && c < k_snap_to_zero) pt[i] = 0.0f;
    }
}

// A new object in front of the list, with a triangle and three vertices of its own.
obj_h new_loose_tr(obj_list* list, std::int32_t* err)
{
    const obj_h o = cell_obj_new();
    if (!o || !list_push(list, o)) {
        *err = err_no_memory;
        return {};
    }
    const tr_h t = tr_new(err);
    if (!t) return {};
    tr_rec& tr = rec(t);
    rec(o).tr = tr_ref(t);
    tr.flags |= tr_loaded;
    tr.cell = o;
    for (vtx_h& corner : tr.vtx) {
        const vtx_h v = vtx_new();
        if (!v) {
            *err = err_no_memory;
            return {};
        }
        corner = vtx_ref(v);
    }
    return o;
}

void place_corner(vtx_h v, const float* pt, const coord_transform* transform)
{
    float* pos = rec(v).pos;
    vec_copy(pt, pos);
    if (transform) transform_in(*transform, pos);
    snap_to_zero(pos);
}

void take_in(obj_h o, const stl_tri& tri, const coord_transform* transform, double margin,
             aabb* bbox)
{
    cell_obj& obj = rec(o);
    const tr_rec& tr = rec(obj.tr);
    const float* corners[3] = {tri.corner1, tri.corner2, tri.corner3};
    for (int i = 0; i < 3; ++i) {
        place_corner(tr.vtx[i], corners[i], transform);
        box_add(bbox, corner_pos(tr, i));
    }
    obj.box = box_of_tr(tr);
    box_widen(&obj.box, margin);
}

bool has_nan_corner(const tr_rec& tr)
{
    return vec_has_nan(corner_pos(tr, 0)) || vec_has_nan(corner_pos(tr, 1)) ||
           vec_has_nan(corner_pos(tr, 2));
}

void corner_out(const tr_rec& tr, int i, const coord_transform* transform, float* out)
{
    vec_copy(corner_pos(tr, i), out);
    for (int k = 0; k < 3 && transform && transform->shift_on; ++k)
        out[k] = static_cast<float>(static_cast<double>(out[k]) - transform->shift[k]);
}

void nrm_out(const tr_rec& tr, const coord_transform* transform, float* out)
{
    vec_copy(tr.nrm, out);
    for (int k = 0; k < 3 && transform && transform->scale_on; ++k)
        out[k] = static_cast<float>(static_cast<double>(out[k]) * transform->scale[k]);
}

} // namespace

bool tr_in_kill_range(const stl_tri& tri)
{
    return within_kill(tri.corner1) && within_kill(tri.corner2) && within_kill(tri.corner3);
}

stage_result stl_load_model(obj_list* list, aabb* bbox, std::uint32_t limit, std::uint32_t* count,
                            stl_stream* stream, const coord_transform* transform, std::int32_t* err)
{
    const double margin = static_cast<double>(merge_tol) * k_reader_margin;
    std::uint32_t ignored = 0;
    stl_tri tri;
    *bbox = k_no_box;
    *count = 0;
    while (stl_get_triangle(stream, &tri) != 0 && *count != limit) {
        if (!tr_in_kill_range(tri)) {
            ++ignored;
            continue;
        }
        const obj_h o = new_loose_tr(list, err);
        if (!o) return stage_failed;
        take_in(o, tri, transform, margin, bbox);
        ++*count;
    }
    if (stl_error(stream)) *err = err_stl_input;
    box_widen(bbox, 2.0 * margin);
    if (ignored != 0)
        log_line("\nstl-input: ignored %1d triangles with absolute coordinate values larger than "
                 "%6.1f units.\n\n",
                 static_cast<int>(ignored), kill_value);
    return stage_ok;
}

void tr_set_nrm(tr_rec* tr)
{
    double best = 1.0;
    for (int i = 0; i < 3; ++i) {
        float e1[3];
        float e2[3];
        vec_diff(corner_pos(*tr, i), corner_pos(*tr, next3(i)), e1);
        vec_diff(corner_pos(*tr, i), corner_pos(*tr, prev3(i)), e2);
        vec_unit(e1);
        vec_unit(e2);
        const double c = std::fabs(vec_dot(e1, e2));
        if (!(c < best)) continue;
        best = c;
        vec_cross(e1, e2, tr->nrm);
        vec_unit(tr->nrm);
    }
    if (vec_has_nan(tr->nrm)) vec_set(tr->nrm, 0.0f, 0.0f, 0.0f);
}

stage_result stl_write_tr(tr_h t, const coord_transform* transform, std::int32_t* err,
                          stl_stream* stream)
{
    tr_rec& tr = rec(t);
    if (tr_collapsed(tr) || has_nan_corner(tr)) return stage_ok;
    if (!(tr.flags & tr_nrm_done) || (tr.flags & tr_no_nrm) || vec_has_nan(tr.nrm)) tr_set_nrm(&tr);
    stl_tri tri = {};
    nrm_out(tr, transform, tri.normal);
    corner_out(tr, 0, transform, tri.corner1);
    corner_out(tr, 1, transform, tri.corner2);
    corner_out(tr, 2, transform, tri.corner3);
    if (stl_put_triangle(stream, &tri)) return stage_ok;
    *err = err_stl_output;
    return stage_failed;
}

} // namespace velmora
