#include "mesh/plane.h"

#include "mesh/measure.h"
#include "mesh/vec.h"

namespace velmora {

int axis_of_normal(const float* n)
{
    const float a[3] = {std::fabs(n[0]), std::fabs(n[1]), std::fabs(n[2])};
    for (int i = 0; i < 3; ++i)
        if (a[i] > 0.0f && !(a[i] < a[next3(i)]) && !(a[i] < a[prev3(i)])) return i;
    return -1;
}

// The largest of three, asked in the order that decides between equals.
static int axis_of_largest(const double* f)
{
    if (f[0] > f[1]) return f[0] > f[2] ? 0 : 2;
    return f[1] > f[2] ? 1 : 2;
}

static int axis_of_face(const double* face, const float* n)
{
    const double a[3] = {std::fabs(static_cast<double>(n[0])), std::fabs(static_cast<double>(n[1])),
                         std::fabs(static_cast<double>(n[2]))};
    const bool counts[3] = {a[0] > k_axis_component_min, a[1] > k_axis_component_min,
                            a[2] > k_axis_component_min};
    if (face[0] > face[1] && counts[0]) {
        if (face[0] > face[2]) return 0;
        if (counts[2]) return 2;
    }
    if (face[1] > face[2] && counts[1]) return 1;
    if (counts[2]) return 2;
    return axis_of_largest(a);
}

int axis_from_box(const aabb& box, const float* n)
{
    double e[3];
    for (int i = 0; i < 3; ++i)
        e[i] = static_cast<double>(box.max[i] - box.min[i]);
    for (int i = 0; i < 3; ++i)
        if (e[i] <= k_unit_eps) return i;
    const double face[3] = {e[1] * e[2], e[2] * e[0], e[0] * e[1]};
    return n ? axis_of_face(face, n) : axis_of_largest(face);
}

void plane_unit(const float* u, const float* v, float* out)
{
    vec_cross(u, v, out);
    vec_unit(out);
}

bool unit_line_t(const float* m, double at, const float* a, const float* d, double* out)
{
    const double q = vec_dot(m, d);
    if (q > -k_plane_eps && q < k_plane_eps) return false;
    *out = (at - vec_dot(m, a)) / q;
    return true;
}

bool plane_line_t(const float* p, const float* u, const float* v, const float* a, const float* d,
                  double* out)
{
    float m[3];
    plane_unit(u, v, m);
    return unit_line_t(m, vec_dot(m, p), a, d, out);
}

line_hit tr_line_hit(const tr_rec& tr, const float* a, const float* b)
{
    line_hit hit = {false, false, 0.0, {0.0f, 0.0f, 0.0f}};
    if (tr_has_equal_corners(tr) || pts_equal(a, b)) return hit;
    float u[3];
    float v[3];
    float d[3];
    edge_vec(tr, 0, u);
    edge_vec(tr, 1, v);
    vec_diff(a, b, d);
    if (!plane_line_t(corner_pos(tr, 0), u, v, a, d, &hit.t)) return hit;
    hit.met = true;
    hit.between = hit.t >= 0.0 && hit.t <= 1.0;
    for (int i = 0; i < 3; ++i)
        hit.pt[i] =
            static_cast<float>(static_cast<double>(a[i]) + hit.t * static_cast<double>(d[i]));
    return hit;
}

} // namespace velmora
