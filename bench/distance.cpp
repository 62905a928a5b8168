#include "distance.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace velmora::bench {

namespace {

constexpr std::size_t k_leaf_size = 4;
constexpr double k_most_steps = 200.0; // along an edge

struct vec {
    double x, y, z;
};

vec operator-(const vec& a, const vec& b)
{
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}

vec along(const vec& from, const vec& by, double t)
{
    return {from.x + by.x * t, from.y + by.y * t, from.z + by.z * t};
}

double dot(const vec& a, const vec& b)
{
    return a.x * b.x + a.y * b.y + a.z * b.z;
}

vec cross(const vec& a, const vec& b)
{
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

vec corner(const triangle& tr, int i)
{
    return {static_cast<double>(tr.vtx[i][0]), static_cast<double>(tr.vtx[i][1]),
            static_cast<double>(tr.vtx[i][2])};
}

double segment_distance2(const vec& p, const vec& a, const vec& b)
{
    const vec edge = b - a;
    const double len2 = dot(edge, edge);
    const double t = len2 > 0.0 ? std::clamp(dot(p - a, edge) / len2, 0.0, 1.0) : 0.0;
    const vec gap = p - along(a, edge, t);
    return dot(gap, gap);
}

/// Inside the prism over the triangle the plane is nearest, outside of it an edge.
double triangle_distance2(const vec& p, const triangle& tr)
{
    const vec at[3] = {corner(tr, 0), corner(tr, 1), corner(tr, 2)};
    const vec nrm = cross(at[1] - at[0], at[2] - at[0]);
    const double len2 = dot(nrm, nrm);
    bool inside = len2 > 0.0;
    double best = std::numeric_limits<double>::infinity();
    for (int i = 0; i < 3; ++i) {
        const vec& a = at[i];
        const vec& b = at[(i + 1) % 3];
        inside = inside && dot(cross(b - a, p - a), nrm) >= 0.0;
        best = std::min(best, segment_distance2(p, a, b));
    }
    if (!inside) return best;
    const double height = dot(p - at[0], nrm);
    return std::min(best, height * height / len2);
}

double box_distance2(const double p[3], const float min[3], const float max[3])
{
    double sum = 0.0;
    for (int i = 0; i < 3; ++i) {
        const double below = static_cast<double>(min[i]) - p[i];
        const double above = p[i] - static_cast<double>(max[i]);
        const double gap = std::max({below, above, 0.0});
        sum += gap * gap;
    }
    return sum;
}

float middle(const triangle& tr, int axis)
{
    return tr.vtx[0][axis] + tr.vtx[1][axis] + tr.vtx[2][axis];
}

double longest_edge(const triangle& tr)
{
    double best = 0.0;
    for (int i = 0; i < 3; ++i) {
        const vec edge = corner(tr, (i + 1) % 3) - corner(tr, i);
        best = std::max(best, dot(edge, edge));
    }
    return std::sqrt(best);
}

double area(const triangle& tr)
{
    const vec n = cross(corner(tr, 1) - corner(tr, 0), corner(tr, 2) - corner(tr, 0));
    return std::sqrt(dot(n, n)) / 2.0;
}

} // namespace

double point_triangle_distance(const double p[3], const triangle& tr)
{
    return std::sqrt(triangle_distance2({p[0], p[1], p[2]}, tr));
}

surface::surface(std::vector<triangle> trs) : trs_(std::move(trs))
{
    if (!trs_.empty()) build(0, trs_.size());
}

// The first child follows its parent at once, so only the place of the second is kept.
void surface::build(std::size_t first, std::size_t count)
{
    const std::size_t at = nodes_.size();
    node box = {{1e38f, 1e38f, 1e38f}, {-1e38f, -1e38f, -1e38f}, first, count, 0};
    for (std::size_t i = first; i < first + count; ++i) {
        for (const auto& vtx : trs_[i].vtx) {
            for (int k = 0; k < 3; ++k) {
                box.min[k] = std::min(box.min[k], vtx[k]);
                box.max[k] = std::max(box.max[k], vtx[k]);
            }
        }
    }
    nodes_.push_back(box);
    if (count <= k_leaf_size) return;

    int axis = 0;
    for (int k = 1; k < 3; ++k) {
        if (box.max[k] - box.min[k] > box.max[axis] - box.min[axis]) axis = k;
    }
    const std::size_t half = count / 2;
    const auto begin = trs_.begin() + static_cast<std::ptrdiff_t>(first);
    std::nth_element(
        begin, begin + static_cast<std::ptrdiff_t>(half),
        begin + static_cast<std::ptrdiff_t>(count),
        [axis](const triangle& a, const triangle& b) { return middle(a, axis) < middle(b, axis); });
    build(first, half);
    nodes_[at].high = nodes_.size();
    build(first + half, count - half);
}

void surface::search(std::size_t at, const double p[3], double* best) const
{
    const node& n = nodes_[at];
    if (box_distance2(p, n.min, n.max) >= *best) return;
    if (n.high == 0) {
        for (std::size_t i = n.first; i < n.first + n.count; ++i)
            *best = std::min(*best, triangle_distance2({p[0], p[1], p[2]}, trs_[i]));
        return;
    }
    std::size_t near = at + 1;
    std::size_t far = n.high;
    if (box_distance2(p, nodes_[far].min, nodes_[far].max) <
        box_distance2(p, nodes_[near].min, nodes_[near].max))
        std::swap(near, far);
    search(near, p, best);
    search(far, p, best);
}

double surface::distance(const double p[3]) const
{
    double best = std::numeric_limits<double>::infinity();
    if (!nodes_.empty()) search(0, p, &best);
    return std::sqrt(best);
}

double surface::diagonal() const
{
    if (nodes_.empty()) return 0.0;
    double sum = 0.0;
    for (int k = 0; k < 3; ++k) {
        const double side =
            static_cast<double>(nodes_[0].max[k]) - static_cast<double>(nodes_[0].min[k]);
        sum += side * side;
    }
    return std::sqrt(sum);
}

deviation measure_deviation(const surface& from, const surface& to, double step)
{
    deviation result = {0.0, 0.0};
    double weight = 0.0;
    for (const triangle& tr : from.triangles()) {
        const int n =
            static_cast<int>(std::clamp(std::ceil(longest_edge(tr) / step), 1.0, k_most_steps));
        const vec a = corner(tr, 0);
        const vec u = corner(tr, 1) - a;
        const vec v = corner(tr, 2) - a;
        double sum = 0.0;
        for (int i = 0; i <= n; ++i) {
            for (int j = 0; j <= n - i; ++j) {
                const vec p =
                    along(along(a, u, static_cast<double>(i) / n), v, static_cast<double>(j) / n);
                const double at[3] = {p.x, p.y, p.z};
                const double d = to.distance(at);
                result.max = std::max(result.max, d);
                sum += d;
            }
        }
        result.mean += area(tr) * sum / ((n + 1) * (n + 2) / 2.0);
        weight += area(tr);
    }
    if (weight > 0.0) result.mean /= weight;
    return result;
}

} // namespace velmora::bench
