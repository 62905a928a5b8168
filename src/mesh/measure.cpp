#include "mesh/measure.h"

#include "mesh/vec.h"

namespace velmora {

bool tr_has_equal_corners(const tr_rec& tr)
{
    const float* c0 = corner_pos(tr, 0);
    const float* c1 = corner_pos(tr, 1);
    const float* c2 = corner_pos(tr, 2);
    return pts_equal(c0, c1) || pts_equal(c1, c2) || pts_equal(c2, c0);
}

bool tr_same_vertices(const tr_rec& a, const tr_rec& b)
{
    for (int i = 0; i < 3; ++i)
        if (tr_vtx_index(a.vtx[i], b) < 0 || tr_vtx_index(b.vtx[i], a) < 0) return false;
    return true;
}

int tr_edge_index(vtx_h a, vtx_h b, const tr_rec& tr)
{
    for (int i = 0; i < 3; ++i) {
        const vtx_h from = tr.vtx[i];
        const vtx_h to = tr.vtx[next3(i)];
        if ((from == a && to == b) || (from == b && to == a)) return i;
    }
    return -1;
}

int tr_nbr_index(tr_h nbr, const tr_rec& tr)
{
    if (!nbr) return -1;
    for (int i = 0; i < 3; ++i)
        if (tr.nbr[i] == nbr) return i;
    return -1;
}

int tr_nbr_count(const tr_rec& tr)
{
    int count = 0;
    for (int i = 0; i < 3; ++i)
        if (live_nbr(tr, i)) ++count;
    return count;
}

void edge_vec(const tr_rec& tr, int i, float* out)
{
    vec_diff(corner_pos(tr, i), corner_pos(tr, next3(i)), out);
}

double edge_len(const tr_rec& tr, int i)
{
    float e[3];
    edge_vec(tr, i, e);
    return vec_len(e);
}

double tr_area(const tr_rec& tr)
{
    float e1[3];
    float e2[3];
    float n[3];
    vec_diff(corner_pos(tr, 0), corner_pos(tr, 1), e1);
    vec_diff(corner_pos(tr, 0), corner_pos(tr, 2), e2);
    vec_cross(e1, e2, n);
    return vec_len(n) * 0.5;
}

// Unit vectors along the two edges at corner i, towards the next corner and the one after.
static void corner_arms(const tr_rec& tr, int i, float* e1, float* e2)
{
    vec_diff(corner_pos(tr, i), corner_pos(tr, next3(i)), e1);
    vec_diff(corner_pos(tr, i), corner_pos(tr, prev3(i)), e2);
    vec_unit(e1);
    vec_unit(e2);
}

double corner_cos(const tr_rec& tr, int i)
{
    float e1[3];
    float e2[3];
    corner_arms(tr, i, e1, e2);
    return vec_dot(e1, e2);
}

// Floats of this size or more that differ do so by 7e-15 at least.
static bool coordinate_is_plain(float c)
{
    return c == 0.0f || std::fabs(c) >= 1e-7f;
}

bool vtxs_are_apart()
{
    bool apart = true;
    for (std::uint32_t i = 1; i < vtx_pool.used && apart; ++i) {
        const vtx_rec& v = rec(vtx_h{i});
        if (v.holders == 0) continue;
        for (const float c : v.pos)
            apart = apart && coordinate_is_plain(c);
    }
    return apart;
}

max_cos_result tr_max_cos(const tr_rec& tr, double limit)
{
    max_cos_result r = {false, -1.0, 0};
    for (int i = 0; i < 3; ++i) {
        const double c = corner_cos(tr, i);
        if (c > limit) r.above = true;
        if (c > r.cos) {
            r.cos = c;
            r.corner = i;
        }
    }
    return r;
}

bool tr_clean_normal(const tr_rec& tr, float* out)
{
    float e1[3];
    float e2[3];
    vec_diff(corner_pos(tr, 0), corner_pos(tr, 1), e1);
    vec_diff(corner_pos(tr, 0), corner_pos(tr, 2), e2);
    if (!vec_unit_checked(e1) || !vec_unit_checked(e2)) return false;
    vec_cross(e1, e2, out);
    if (!vec_unit_checked(out)) return false;
    for (int i = 0; i < 3; ++i) {
        const double c = static_cast<double>(out[i]);
        if (c > -k_clean_nrm_eps && c < k_clean_nrm_eps) out[i] = 0.0f;
    }
    return true;
}

// The widest corner of a triangle and all three cosines; -1 when no corner has one.
static int widest_corner(const tr_rec& tr, double* cosines)
{
    int widest = -1;
    double smallest = 1.0;
    for (int i = 0; i < 3; ++i) {
        cosines[i] = corner_cos(tr, i);
        if (!(cosines[i] <= smallest)) continue;
        smallest = cosines[i];
        widest = i;
    }
    return widest;
}

height_result tr_height(const tr_rec& tr)
{
    height_result r = {false, -1, 0.0, 0.0, {0.0f, 0.0f, 0.0f}};
    if (tr_collapsed(tr) || tr_has_equal_corners(tr)) return r;
    double cosines[3];
    r.corner = widest_corner(tr, cosines);
    if (r.corner < 0) return r;
    r.cos = cosines[r.corner];

    // Foot on the edge from b to c, by the projection of the edge from b to the widest corner.
    const int b = prev3(r.corner);
    float to_widest[3];
    float to_c[3];
    vec_diff(corner_pos(tr, b), corner_pos(tr, r.corner), to_widest);
    vec_diff(corner_pos(tr, b), corner_pos(tr, next3(r.corner)), to_c);
    const double base = vec_len(to_c);
    float projection = static_cast<float>(vec_len(to_widest) * cosines[b]);
    if (projection > static_cast<float>(base)) projection = static_cast<float>(base);
    float foot[3];
    vec_copy(corner_pos(tr, b), foot);
    vec_along(foot, to_c, static_cast<double>(projection) / base);

    vec_diff(corner_pos(tr, r.corner), foot, r.vec);
    r.height = vec_len(r.vec);
    r.ok = r.height > static_cast<double>(merge_tol);
    return r;
}

static bool is_open_corner(double cos)
{
    return cos > -k_flat_corner_cos && cos < k_flat_corner_cos;
}

bool tr_has_open_corner(const tr_rec& tr)
{
    for (int i = 0; i < 3; ++i)
        if (is_open_corner(corner_cos(tr, i))) return true;
    return false;
}

static bool nrm_from_corner(const tr_rec& tr, float* nrm)
{
    for (int i = 0; i < 3; ++i) {
        float e1[3];
        float e2[3];
        corner_arms(tr, i, e1, e2);
        if (!is_open_corner(vec_dot(e1, e2))) continue;
        vec_cross(e1, e2, nrm);
        vec_unit(nrm);
        return true;
    }
    return false;
}

static bool nrm_from_height(const tr_rec& tr, float* nrm)
{
    height_result h = tr_height(tr);
    if (!h.ok || !(h.height >= static_cast<double>(merge_tol))) return false;
    float e[3];
    vec_diff(corner_pos(tr, h.corner), corner_pos(tr, prev3(h.corner)), e);
    vec_unit(h.vec);
    vec_unit(e);
    vec_cross(h.vec, e, nrm);
    vec_unit(nrm);
    return true;
}

bool tr_recompute_nrm(tr_rec* tr, bool compute, std::uint32_t* counter)
{
    if (compute) {
        if (!nrm_from_corner(*tr, tr->nrm) && !nrm_from_height(*tr, tr->nrm)) {
            vec_set(tr->nrm, 0.0f, 0.0f, 0.0f);
            tr->flags |= tr_no_nrm | tr_nrm_done;
            return false;
        }
        tr->flags &= ~static_cast<std::uint64_t>(tr_no_nrm);
    }
    tr->flags |= tr_nrm_done;
    if (counter) ++*counter;
    return true;
}

double pt_seg_dist(const float* a, const float* b, const float* p)
{
    const double da = pt_dist(p, a);
    const double db = pt_dist(p, b);
    float u[3];
    float e[3];
    vec_diff(a, b, u);
    vec_copy(u, e);
    if (!vec_unit_checked(e)) return db < da ? db : da;
    float w[3];
    float f[3];
    vec_diff(a, p, w);
    vec_copy(w, f);
    if (!vec_unit_checked(f)) return da;
    const double c = vec_dot(e, f);
    if (c < k_unit_eps) return da;
    const double s = vec_len(w) * c;
    if (s >= vec_len(u)) return db;
    float foot[3];
    vec_copy(a, foot);
    vec_along(foot, e, s);
    float off[3];
    vec_diff(foot, p, off);
    return vec_len(off);
}

static double nearest_edge_dist(const tr_rec& tr, const float* p)
{
    double nearest = k_far;
    for (int i = 0; i < 3; ++i) {
        const double d = pt_seg_dist(corner_pos(tr, i), corner_pos(tr, next3(i)), p);
        if (d < nearest) nearest = d;
    }
    return nearest;
}

double pt_tr_dist(const tr_rec& tr, const float* p)
{
    if (tr.flags & tr_no_nrm) return nearest_edge_dist(tr, p);
    for (int i = 0; i < 3; ++i)
        if (pts_equal(p, corner_pos(tr, i))) return pt_dist(corner_pos(tr, i), p);
    float w[3];
    vec_diff(corner_pos(tr, 0), p, w);
    const double d = vec_len(w);
    vec_unit(w);
    return d * vec_dot(w, tr.nrm);
}

} // namespace velmora
