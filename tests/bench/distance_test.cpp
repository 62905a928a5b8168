// The distance of surfaces: each kind of nearest place on a triangle, the tree against all
// triangles, and the samples between corners.
#include "distance.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>

namespace velmora::bench {
namespace {

constexpr triangle k_right = {{{0, 0, 0}, {4, 0, 0}, {0, 3, 0}}};

TEST(distance, is_that_of_the_nearest_place)
{
    struct {
        const char* name;
        double p[3];
        double expected;
    } const cases[] = {
        {"inside, above", {1, 1, 2}, 2},   {"inside, below", {1, 1, -2}, 2},
        {"on it", {1, 1, 0}, 0},           {"beside an edge", {2, -3, 4}, 5},
        {"beyond a corner", {7, 0, 4}, 5}, {"beside the long edge", {5, 5, 0}, 4.6},
        {"over a corner", {0, 0, -1}, 1},
    };
    for (const auto& c : cases)
        EXPECT_NEAR(point_triangle_distance(c.p, k_right), c.expected, 1e-12) << c.name;

    const triangle line = {{{0, 0, 0}, {1, 0, 0}, {2, 0, 0}}};
    const double p[3] = {3, 1, 0};
    EXPECT_NEAR(point_triangle_distance(p, line), std::sqrt(2.0), 1e-12);
}

TEST(distance, from_a_surface_is_that_from_its_nearest_triangle)
{
    std::vector<triangle> trs;
    for (std::uint64_t i = 0; i < 300; ++i)
        trs.push_back(model_triangle(make_model(shape_town, 2000, 1), 7 * i));
    const surface all(trs);
    for (int i = 0; i < 200; ++i) {
        const double p[3] = {i * 2.0, (i * 37 % 101) * 2.0, (i * 11 % 13) * 3.0};
        double nearest = std::numeric_limits<double>::infinity();
        for (const triangle& tr : trs)
            nearest = std::min(nearest, point_triangle_distance(p, tr));
        EXPECT_DOUBLE_EQ(all.distance(p), nearest);
    }
    const double p[3] = {0, 0, 0};
    EXPECT_EQ(surface({}).distance(p), std::numeric_limits<double>::infinity());
}

// A roof of height 1 over the ground: its corners lie on the ground, its ridge does not.
TEST(distance, of_surfaces_is_seen_between_corners_too)
{
    const surface ground(
        {{{{0, 0, 0}, {4, 0, 0}, {4, 4, 0}}}, {{{0, 0, 0}, {4, 4, 0}, {0, 4, 0}}}});
    const surface roof({{{{0, 0, 0}, {4, 0, 0}, {2, 2, 1}}},
                        {{{4, 0, 0}, {4, 4, 0}, {2, 2, 1}}},
                        {{{4, 4, 0}, {0, 4, 0}, {2, 2, 1}}},
                        {{{0, 4, 0}, {0, 0, 0}, {2, 2, 1}}}});
    const deviation down = measure_deviation(roof, ground, 0.05);
    EXPECT_NEAR(down.max, 1.0, 1e-12);
    EXPECT_NEAR(down.mean, 1.0 / 3.0, 0.01);
    const deviation up = measure_deviation(ground, roof, 0.05);
    EXPECT_NEAR(up.max, 2.0 / std::sqrt(5.0), 0.02);
    EXPECT_EQ(measure_deviation(ground, ground, 0.5).max, 0.0);
}

} // namespace
} // namespace velmora::bench
