#include "mesh/box.h"
#include "mesh/vec.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace velmora {

static const float k_nan = std::numeric_limits<float>::quiet_NaN();
static const float k_inf = std::numeric_limits<float>::infinity();
static const float k_step = 0x1p-23f; // from 1 to the next float; also the shortest unit length

// The squares are exact; the order of the two additions and the width of the sum decide.
TEST(vec, sum_of_squares_is_float_y_before_x_before_z)
{
    const float v[3] = {7.546875f, 31.7109375f, 28.7734375f};
    EXPECT_EQ(vec_dot(v, v), 1890.449462890625);
    EXPECT_EQ(vec_len(v), 43.479299245625214); // the double root of that float
}

TEST(vec, along_is_double_until_the_end)
{
    float p[3] = {5.068359375f, 0, 1};
    const float d[3] = {0.86138916015625f, 1, 0};
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
}

TEST(vec, checked_unit_leaves_short_vectors_alone)
{
    const float too_short = std::nextafter(k_step, 0.0f);
    for (const float x : {0.0f, too_short, -too_short}) {
        float v[3] = {x, 0, 0};
        EXPECT_FALSE(vec_unit_checked(v));
        EXPECT_EQ(v[0], x);
    }
    for (const float x : {k_step, -3.0f}) {
        float v[3] = {0, x, 0};
        EXPECT_TRUE(vec_unit_checked(v));
        EXPECT_EQ(v[1], std::copysign(1.0f, x));
    }
    float odd[3] = {k_nan, 1, 0}; // has no length that could be too short
    EXPECT_TRUE(vec_unit_checked(odd));
    float zero[3] = {0, -0.0f, 0};
    vec_unit(zero);
    EXPECT_TRUE(std::isnan(zero[0]) && std::isnan(zero[1]) && std::isnan(zero[2]));
}

struct equal_case {
    float to[3]; // from (1, 1, 1)
    bool equal;  // within a quarter
};

static const equal_case equal_cases[] = {
    {{1, 1, 1}, true},          {{1.25f, 0.75f, 1.25f}, true}, {{1, 1, 1.25f + k_step}, false},
    {{0.5f, 1, 1}, false},      {{k_nan, 1, 1}, true}, // is never apart
    {{1, k_inf, k_nan}, false},
};

TEST(points, are_equal_within_the_closed_tolerance_on_each_axis)
{
    const float from[3] = {1, 1, 1};
    for (const equal_case& c : equal_cases) {
        merge_tol = 0.25f;
        EXPECT_EQ(pts_equal(from, c.to), c.equal) << &c - equal_cases;
        EXPECT_EQ(pts_equal(c.to, from), c.equal) << &c - equal_cases;
    }
    const float zero[3] = {0, 0, 0};
    const float minus[3] = {-0.0f, 0, 0};
    const float tiny[3] = {0, std::numeric_limits<float>::denorm_min(), 0};
    const float smallest[3] = {0, std::numeric_limits<float>::min(), 0};
    const float next[3] = {0, std::nextafter(smallest[1], 1.0f), 0};
    merge_tol = 0.0f;
    EXPECT_TRUE(pts_equal(zero, minus));
    EXPECT_FALSE(pts_equal(zero, tiny));
    EXPECT_TRUE(pts_coincide(zero, smallest)); // whatever the tolerance
    EXPECT_FALSE(pts_coincide(zero, next));
    EXPECT_TRUE(pts_same(zero, minus));
    EXPECT_FALSE(pts_same(zero, tiny));
    merge_tol = k_default_merge_tol;
}

// A cube, and the same moved until it touches, one step too far, or nowhere.
TEST(box, touching_boxes_overlap_and_hold_the_points_on_their_faces)
{
    const aabb cube = {{0, 0, 0}, {1, 1, 1}};
    for (int axis = 0; axis < 3; ++axis)
        for (const float low : {1.0f, 1 + k_step, -1.0f, -1 - k_step, k_nan}) {
            const bool apart = low == 1 + k_step || low == -1 - k_step;
            aabb other = cube;
            other.min[axis] = low;
            other.max[axis] = low < 0 ? low + 1 : 2; // rounds to 0 or stays below
            if (low < -1) other.max[axis] = -k_step;
            EXPECT_EQ(box_overlap(cube, other), !apart) << axis << " " << low;
            EXPECT_EQ(box_overlap(other, cube), !apart) << axis << " " << low;
            float p[3] = {0.5f, 0.5f, 0.5f};
            p[axis] = low < 0 ? other.max[axis] : low;
            EXPECT_EQ(pt_in_box(cube, p), !apart) << axis << " " << low;
        }
    EXPECT_FALSE(box_overlap(cube, k_no_box));
}

TEST(box, grows_by_numbers_only)
{
    aabb box = k_no_box;
    const float a[3] = {3, -1, k_nan};
    const float b[3] = {k_nan, 7, -8};
    box_add(&box, a);
    box_add(&box, b);
    EXPECT_TRUE(box.min[0] == 3 && box.max[0] == 3);
    EXPECT_TRUE(box.min[1] == -1 && box.max[1] == 7);
    EXPECT_TRUE(box.min[2] == -8 && box.max[2] == -8);
}

// Floats below 1 stand twice as close as those above.
TEST(box, widening_is_double_and_rounded_once)
{
    aabb box = {{1, 1, 1}, {1, 1, 1}};
    box_widen(&box, 0.75 * 0x1p-23);
    EXPECT_EQ(box.max[0], 1 + k_step);
    EXPECT_EQ(box.min[0], 1 - k_step);
    box_widen(&box, 0.375 * 0x1p-23);
    EXPECT_EQ(box.max[1], 1 + k_step);
    EXPECT_EQ(box.min[2], 1 - k_step - k_step / 2);
}

} // namespace velmora
