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

// The corners as the mesh has them.
void take_in(const stl_tri& tri, const coord_transform* transform, float (*corners)[3])
{
    vec_copy(tri.corner1, corners[0]);
    vec_copy(tri.corner2, corners[1]);
    vec_copy(tri.corner3, corners[2]);
    for (int i = 0; i < 3; ++i) {
        if (transform) transform_in(*transform, corners[i]);
        snap_to_zero(corners[i]);
    }
}

bool add_tr(const stl_tri& tri, const coord_transform* transform, tr_soup* soup, aabb* bbox)
{
    float corners[3][3];
    take_in(tri, transform, corners);
    if (!soup_add(soup, corners)) return false;
    for (const float* corner : corners)
        box_add(bbox, corner);
    return true;
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

double reader_margin()
{
    return static_cast<double>(merge_tol) * k_reader_margin;
}

stage_result stl_load_model(tr_soup* soup, aabb* bbox, std::uint32_t limit, stl_stream* stream,
                            const coord_transform* transform, std::int32_t* err)
{
    std::uint32_t ignored = 0;
    stl_tri tri;
    *bbox = k_no_box;
    while (stl_get_triangle(stream, &tri) != 0 && soup->count != limit) {
        if (!tr_in_kill_range(tri)) {
            ++ignored;
        } else if (!add_tr(tri, transform, soup, bbox)) {
            *err = err_no_memory;
            return stage_failed;
        }
    }
    soup_finish(soup);
    if (stl_error(stream)) *err = err_stl_input;
    box_widen(bbox, 2.0 * reader_margin());
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
