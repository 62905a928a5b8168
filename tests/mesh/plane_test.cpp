#include "mesh/plane.h"
#include "mesh_fixture.h"

#include <cmath>
#include <gtest/gtest.h>

namespace velmora {

struct axis_case {
    float nrm[3];
    int axis;
};

static const axis_case axis_cases[] = {
    {{1, 1, 0}, 0},  {{0, 1, 1}, 1},  {{0, 0, 0}, -1},     {{-3, 2, 2}, 0},
    {{1, -2, 2}, 1}, {{1, 2, -3}, 2}, {{-0.0f, 0, 0}, -1}, {{1, 0, 1}, 0},
};

TEST(axis_of_normal, is_the_first_of_the_largest_components)
{
    for (const axis_case& c : axis_cases)
        EXPECT_EQ(axis_of_normal(c.nrm), c.axis) << &c - axis_cases;
}

struct box_axis_case {
    const char* name;
    float extent[3];
    bool has_nrm;
    float nrm[3];
    int axis;
};

// The face at right angles to an axis is the product of the two other extents.
static const box_axis_case box_axis_cases[] = {
    {"flat in z, whatever the normal", {4, 4, 0}, true, {1, 0, 0}, 2},
    {"first of two flat axes", {4, 0x1p-23f, 0}, false, {}, 1},
    {"just not flat", {2, 1, 0x1.000002p-23f}, false, {}, 2},
    {"largest face x", {1, 2, 3}, false, {}, 0},
    {"largest face y", {2, 1, 3}, false, {}, 1},
    {"equal faces", {2, 2, 2}, false, {}, 2},
    {"normal agrees with x", {1, 2, 3}, true, {0.5f, 0, 0.8f}, 0},
    {"a tenth as a float is above a tenth", {1, 2, 3}, true, {0.1f, 0, 0.9f}, 0},
    {"normal hardly in x, so y", {1, 2, 3}, true, {0.05f, 0.5f, 0.8f}, 1},
    {"x before y but not before z", {2, 3, 1}, true, {0.5f, 0.5f, 0.5f}, 2},
    {"no z in the normal, the later of equals", {2, 3, 1}, true, {0.5f, 0.5f, 0}, 1},
    {"all too small, the largest decides", {1, 2, 3}, true, {0.05f, 0.0625f, 0.03125f}, 1},
    {"nothing to go by", {1, 2, 3}, true, {0, 0, 0}, 2},
};

TEST(axis_from_box, drops_the_axis_that_shows_most)
{
    for (const box_axis_case& c : box_axis_cases) {
        SCOPED_TRACE(c.name);
        const aabb box = {{0, 0, 0}, {c.extent[0], c.extent[1], c.extent[2]}};
        EXPECT_EQ(axis_from_box(box, c.has_nrm ? c.nrm : nullptr), c.axis);
    }
}

// The plane z = 2, spanned by vectors of any length.
TEST(plane_line, parallel_is_strictly_within_the_bound)
{
    const float p[3] = {5, 5, 2};
    const float u[3] = {3, 0, 0};
    const float v[3] = {1, 7, 0};
    const float a[3] = {0, 0, 0};
    const float bound = 1e-6f;
    for (const float sign : {1.0f, -1.0f}) {
        double t = 7.0;
        const float within[3] = {1, 0, sign * std::nextafter(bound, 0.0f)};
        EXPECT_FALSE(plane_line_t(p, u, v, a, within, &t));
        EXPECT_EQ(t, 7.0);
        const float at[3] = {1, 0, sign * bound};
        EXPECT_TRUE(plane_line_t(p, u, v, a, at, &t));
        EXPECT_EQ(t, 2.0 / static_cast<double>(sign * bound));
    }
}

struct hit_case {
    const char* name;
    float a[3];
    float b[3];
    bool met;
    bool between;
    double t;
    float z;
};

static const hit_case hit_cases[] = {
    {"through", {1, 1, 4}, {1, 1, -4}, true, true, 0.5, 0},
    {"far outside of the triangle, onto it", {90, 1, 4}, {90, 1, 0}, true, true, 1.0, 0},
    {"starts on it", {1, 1, 0}, {1, 1, 4}, true, true, 0.0, 0},
    {"ends before it", {1, 1, 4}, {1, 1, 2}, true, false, 2.0, 0},
    {"starts behind it", {1, 1, -2}, {1, 1, -4}, true, false, -1.0, 0},
    {"along it", {1, 1, 1}, {5, 1, 1}, false, false, 0, 0},
    {"within the tolerance", {1, 1, 0}, {1, 1, 1e-6f}, false, false, 0, 0},
};

TEST(line_hit, is_told_where_it_lies_also_beyond_the_ends)
{
    mesh_fixture m("a 0 0 0  b 4 0 0  c 0 4 0", "abc");
    for (const hit_case& c : hit_cases) {
        SCOPED_TRACE(c.name);
        const line_hit hit = tr_line_hit(m.at("abc"), c.a, c.b);
        EXPECT_EQ(hit.met, c.met);
        EXPECT_EQ(hit.between, c.between);
        if (!c.met) continue;
        EXPECT_EQ(hit.t, c.t);
        EXPECT_EQ(hit.pt[2], c.z);
        EXPECT_EQ(hit.pt[0], c.a[0]);
    }
    m.set_merge_tol(4.0f); // now all corners are equal
    EXPECT_FALSE(tr_line_hit(m.at("abc"), hit_cases[0].a, hit_cases[0].b).met);
}

} // namespace velmora
