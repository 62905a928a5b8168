#include "mesh/box.h"
#include "mesh/vec.h"
#include "mesh_fixture.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace velmora {

static const float k_nan = std::numeric_limits<float>::quiet_NaN();
static const float k_inf = std::numeric_limits<float>::infinity();
static const float k_eps = 0x1p-23f; // k_unit_eps as a float
static const float k_below_eps = std::nextafter(k_eps, 0.0f);

// The squares are exact; only the order of the two additions and the width of the sum decide.
TEST(vec, sum_of_squares_is_float_y_before_x_before_z)
{
    const float v[3] = {7.546875f, 31.7109375f, 28.7734375f};
    EXPECT_EQ(vec_dot(v, v), 1890.449462890625);
    EXPECT_EQ(vec_len(v), 43.479299245625214); // the double root of that float
}

TEST(vec, along_is_double_until_the_end)
{
    float p[3] = {5.068359375f, 0.0f, 1.0f};
    const float d[3] = {0.86138916015625f, 1.0f, 0.0f};
    vec_along(p, d, 0.6384713381046937);
    EXPECT_EQ(p[0], 5.618331432342529f); // in float maths 5.6183319
    EXPECT_EQ(p[1], 0.6384713381046937f);
    EXPECT_EQ(p[2], 1.0f);
}

TEST(vec, distance_takes_float_differences_and_double_squares)
{
    const float a[3] = {0.11516903340816498f, 0.6385232210159302f, 6.161683559417725f};
    const float b[3] = {9.300174713134766f, 0.24840214848518372f, 0.01919504627585411f};
    EXPECT_EQ(pt_dist(a, b), 11.056522825726272);
    EXPECT_EQ(pt_dist(b, a), 11.056522825726272);
}

TEST(vec, diff_runs_from_the_first_to_the_second)
{
    const float a[3] = {1, 2, 3};
    float b[3] = {5, 7, 11};
    vec_diff(a, b, b);
    EXPECT_EQ(b[0], 4.0f);
    EXPECT_EQ(b[1], 5.0f);
    EXPECT_EQ(b[2], 8.0f);
}

TEST(vec, cross_is_right_handed)
{
    const float a[3] = {1, 2, 3};
    const float b[3] = {5, 7, 11};
    float out[3];
    vec_cross(a, b, out);
    EXPECT_EQ(out[0], 1.0f);
    EXPECT_EQ(out[1], 4.0f);
    EXPECT_EQ(out[2], -3.0f);
}

struct unit_case {
    const char* name;
    float x;
    bool ok;
    float unit; // of (x, 0, 0)
};

static const unit_case unit_cases[] = {
    {"zero", 0.0f, false, 0.0f},
    {"just too short", k_below_eps, false, k_below_eps},
    {"exactly the bound has a direction", k_eps, true, 1.0f},
    {"backwards", -3.0f, true, -1.0f},
    {"no number has no length to be too short", k_nan, true, k_nan},
    {"the square overflows", 1e30f, true, 0.0f},
};

TEST(vec, checked_unit_leaves_short_vectors_alone)
{
    for (const unit_case& c : unit_cases) {
        SCOPED_TRACE(c.name);
        float v[3] = {c.x, 0.0f, 0.0f};
        EXPECT_EQ(vec_unit_checked(v), c.ok);
        if (std::isnan(c.unit)) {
            EXPECT_TRUE(std::isnan(v[0]));
        } else {
            EXPECT_EQ(v[0], c.unit);
        }
    }
}

TEST(vec, unchecked_unit_of_nothing_is_no_number)
{
    float v[3] = {0.0f, -0.0f, 0.0f};
    vec_unit(v);
    EXPECT_TRUE(std::isnan(v[0]) && std::isnan(v[1]) && std::isnan(v[2]));
}

struct equal_case {
    const char* name;
    float d[3]; // from (1, 1, 1)
    bool equal; // within 0.25
};

static const equal_case equal_cases[] = {
    {"same", {0, 0, 0}, true},
    {"exactly at the bound on all axes", {0.25f, -0.25f, 0.25f}, true},
    {"past it on the last axis", {0, 0, 0.375f}, false},
    {"past it on the first, downwards", {-0.25f - 0x1p-22f, 0, 0}, false},
    {"a difference that is no number never separates", {k_nan, 0, 0}, true},
    {"but an infinite one does", {0, k_inf, 0}, false},
};

TEST(points, are_equal_within_the_closed_tolerance_on_each_axis)
{
    merge_tol = 0.25f;
    const float a[3] = {1, 1, 1};
    for (const equal_case& c : equal_cases) {
        SCOPED_TRACE(c.name);
        const float b[3] = {1 + c.d[0], 1 + c.d[1], 1 + c.d[2]};
        EXPECT_EQ(pts_equal(a, b), c.equal);
        EXPECT_EQ(pts_equal(b, a), c.equal);
    }
    merge_tol = 0.0f;
    const float zero[3] = {0, 0, 0};
    const float minus[3] = {-0.0f, 0, 0};
    const float tiny[3] = {0, std::numeric_limits<float>::denorm_min(), 0};
    EXPECT_TRUE(pts_equal(zero, minus));
    EXPECT_FALSE(pts_equal(zero, tiny));
    merge_tol = k_default_merge_tol;
}

TEST(points, coincide_up_to_the_smallest_normal_float)
{
    const float zero[3] = {0, 0, 0};
    const float at[3] = {std::numeric_limits<float>::min(), 0, 0};
    const float past[3] = {std::nextafter(at[0], 1.0f), 0, 0};
    EXPECT_TRUE(pts_coincide(zero, at));
    EXPECT_FALSE(pts_coincide(zero, past));
}

TEST(points, no_number_is_the_same_as_itself)
{
    const float a[3] = {k_nan, 0, 0};
    const float zero[3] = {0, 0, 0};
    const float minus[3] = {-0.0f, -0.0f, 0};
    EXPECT_FALSE(pts_same(a, a));
    EXPECT_TRUE(pts_same(zero, minus));
}

struct overlap_case {
    const char* name;
    aabb box; // against 0 to 1 on each axis
    bool overlap;
};

static const overlap_case overlap_cases[] = {
    {"inside", {{0.25f, 0.25f, 0.25f}, {0.5f, 0.5f, 0.5f}}, true},
    {"touching in one corner", {{1, 1, 1}, {2, 2, 2}}, true},
    {"a step beyond in x", {{1 + k_eps, 0, 0}, {2, 1, 1}}, false},
    {"a step below in y", {{0, -1, 0}, {1, -k_eps, 1}}, false},
    {"a step beyond in z", {{0, 0, 1 + k_eps}, {1, 1, 2}}, false},
    {"no number separates nothing", {{k_nan, k_nan, 0}, {k_nan, k_nan, 1}}, true},
    {"empty", k_no_box, false},
    {"everywhere", {{-k_inf, -k_inf, -k_inf}, {k_inf, k_inf, k_inf}}, true},
};

TEST(box, touching_boxes_overlap)
{
    const aabb cube = {{0, 0, 0}, {1, 1, 1}};
    for (const overlap_case& c : overlap_cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(box_overlap(cube, c.box), c.overlap);
        EXPECT_EQ(box_overlap(c.box, cube), c.overlap);
    }
}

TEST(box, holds_the_points_on_its_faces)
{
    const aabb cube = {{0, 0, 0}, {1, 1, 1}};
    for (int axis = 0; axis < 3; ++axis) {
        float p[3] = {0.5f, 0.5f, 0.5f};
        for (const float at : {0.0f, 1.0f, k_nan}) {
            p[axis] = at;
            EXPECT_TRUE(pt_in_box(cube, p)) << axis;
        }
        for (const float past : {-k_eps, 1 + k_eps}) {
            p[axis] = past;
            EXPECT_FALSE(pt_in_box(cube, p)) << axis;
        }
    }
}

TEST(box, of_a_triangle_is_exact_and_passes_over_no_numbers)
{
    mesh_fixture m("a 3 -1 5  b -2 7 0  c 1 2 -8", "abc");
    aabb box = box_of_tr(m.at("abc"));
    const aabb expected = {{-2, -1, -8}, {3, 7, 5}};
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(box.min[i], expected.min[i]);
        EXPECT_EQ(box.max[i], expected.max[i]);
    }
    const float odd[3] = {k_nan, 9.0f, 0.0f};
    box_add(&box, odd);
    EXPECT_EQ(box.max[0], 3.0f);
    EXPECT_EQ(box.max[1], 9.0f);
}

// Floats below 1 stand twice as close as those above.
TEST(box, widening_is_double_and_rounded_once)
{
    aabb box = {{1, 1, 1}, {1, 1, 1}};
    box_widen(&box, 0.75 * 0x1p-23);
    EXPECT_EQ(box.max[0], 1 + 0x1p-23f);
    EXPECT_EQ(box.min[0], 1 - 0x1p-23f);
    box_widen(&box, 0.375 * 0x1p-23);
    EXPECT_EQ(box.max[1], 1 + 0x1p-23f);
    EXPECT_EQ(box.min[2], 1 - 0x1p-23f - 0x1p-24f);
}

} // namespace velmora
