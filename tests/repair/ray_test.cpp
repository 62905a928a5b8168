#include "linked.h"
#include "repair/ray.h"

#include <gtest/gtest.h>

namespace velmora {
namespace {

struct polygon_case {
    const char* name;
    std::vector<pt_2d> outline;
    pt_2d at;
    polygon_side side;
};

const std::vector<pt_2d> k_diamond = {{0, -1}, {1, 0}, {0, 1}, {-1, 0}};
const std::vector<pt_2d> k_square = {{0, 0}, {2, 0}, {2, 2}, {0, 2}};
// A step outline whose upper notch lies on the scan line v = 1.
const std::vector<pt_2d> k_step = {{0, 0}, {4, 0}, {4, 2}, {3, 2}, {3, 1}, {1, 1}, {1, 2}, {0, 2}};

const polygon_case polygon_cases[] = {
    {"inside", k_square, {0.5f, 1.5f}, pt_inside},
    {"right of it", k_square, {3, 1}, pt_outside},
    {"left of it", k_square, {-1, 1}, pt_outside},
    {"above", k_square, {1, 3}, pt_outside},
    {"on a level edge", k_square, {1, 2}, pt_on_outline},
    {"level with an edge, beside it", k_square, {-1, 2}, pt_outside},
    {"on a corner", k_square, {0, 2}, pt_on_outline},
    {"on a slanting edge", k_diamond, {0.5f, 0.5f}, pt_on_outline},
    {"inside, the line leaves through a corner", k_diamond, {0.25f, 0}, pt_inside},
    {"outside, the line goes through two corners", k_diamond, {-2, 0}, pt_outside},
    {"outside, the line touches the top corner", k_diamond, {-1, 1}, pt_outside},
    {"outside, the line touches the bottom corner", k_diamond, {-1, -1}, pt_outside},
    {"inside, the line runs along an edge that turns back", k_step, {0.5f, 1}, pt_inside},
    {"on the edge in the notch", k_step, {2, 1}, pt_on_outline},
    {"right of the notch", k_step, {3.5f, 1}, pt_inside},
    {"left of all", k_step, {-1, 1}, pt_outside},
};

TEST(point_in_polygon, tells_inside_outside_and_outline)
{
    for (const polygon_case& c : polygon_cases) {
        SCOPED_TRACE(c.name);
        std::vector<pt_2d> p = c.outline;
        // The answer hangs neither on the direction nor on the corner that comes first.
        for (std::size_t turn = 0; turn < p.size(); ++turn) {
            const int n = static_cast<int>(p.size());
            EXPECT_EQ(point_in_polygon_2d(c.at, p.data(), n), c.side);
            const std::vector<pt_2d> back(p.rbegin(), p.rend());
            EXPECT_EQ(point_in_polygon_2d(c.at, back.data(), n), c.side);
            std::rotate(p.begin(), p.begin() + 1, p.end());
        }
    }
}

TEST(point_in_polygon, snaps_to_the_outline_within_a_millionth)
{
    EXPECT_EQ(point_in_polygon_2d({1, 9.0e-7f}, k_square.data(), 4), pt_on_outline);
    EXPECT_EQ(point_in_polygon_2d({1, 2.0e-6f}, k_square.data(), 4), pt_inside);
    EXPECT_EQ(point_in_polygon_2d({1, -2.0e-6f}, k_square.data(), 4), pt_outside);
    EXPECT_EQ(point_in_polygon_2d({0.5f, 0.5f + 4.0e-7f}, k_diamond.data(), 4), pt_on_outline);
}

struct segment_case {
    const char* name;
    float from[3];
    float to[3];
    crossing met;
};

const segment_case segment_cases[] = {
    {"through the inside", {1, 1, -1}, {1, 1, 1}, crossing_inside},
    {"slanting", {0, 1, -1}, {2, 1, 1}, crossing_inside},
    {"beside it", {3, 3, -1}, {3, 3, 1}, crossing_miss},
    {"through an edge", {1, 0, -1}, {1, 0, 1}, crossing_on_boundary},
    {"through a corner", {4, 0, -1}, {4, 0, 1}, crossing_on_boundary},
    {"ends on the plane", {1, 1, -1}, {1, 1, 0}, crossing_inside},
    {"ends before the plane", {1, 1, -1}, {1, 1, -0.5f}, crossing_miss},
    {"begins behind the plane", {1, 1, 0.5f}, {1, 1, 1}, crossing_miss},
    {"in the plane", {-1, 1, 0}, {5, 1, 0}, crossing_miss},
    {"no length", {1, 1, 0}, {1, 1, 0}, crossing_miss},
};

TEST(segment_against_triangle, is_classed_alike_from_both_ends)
{
    // a-b-c in the plane of z, and the same triangle with x, y, z in the place of y, z, x.
    mesh_fixture m("a 0 0 0  b 4 0 0  c 0 4 0  d 0 0 4", "abc bda");
    m.at("abc").nrm[2] = 1.0f;
    m.at("bda").nrm[1] = -1.0f; // corners (x, z) = (4, 0) (0, 4) (0, 0)
    for (const segment_case& c : segment_cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(segment_triangle_class(m.at("abc"), segment_between(c.from, c.to)), c.met);
        EXPECT_EQ(segment_triangle_class(m.at("abc"), segment_between(c.to, c.from)), c.met);
        const float from[3] = {c.from[0], c.from[2], c.from[1]};
        const float to[3] = {c.to[0], c.to[2], c.to[1]};
        EXPECT_EQ(segment_triangle_class(m.at("bda"), segment_between(from, to)), c.met);
    }
}

TEST(ray_to_box_exit, stops_at_the_first_face_and_never_goes_back)
{
    const aabb box = {{0, 0, 0}, {4, 8, 16}};
    float pt[3] = {1, 1, 1};
    const float slant[3] = {0.5f, 1.0f, 0.0f};
    ray_to_box_exit(box, slant, pt);
    EXPECT_EQ(pt[0], 4.0f);
    EXPECT_EQ(pt[1], 7.0f);
    EXPECT_EQ(pt[2], 1.0f);
    const float down[3] = {0.0f, 0.0f, -1.0f};
    ray_to_box_exit(box, down, pt);
    EXPECT_EQ(pt[2], 0.0f);
    pt[2] = -3.0f;
    ray_to_box_exit(box, down, pt);
    EXPECT_EQ(pt[2], -3.0f);
}

} // namespace
} // namespace velmora
