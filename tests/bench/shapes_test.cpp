#include "shapes.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <utility>
#include <vector>

namespace velmora::bench {

namespace {

using point = std::array<float, 3>;
using edge = std::pair<point, point>;

struct shape_case {
    shape_kind kind;
    std::uint32_t checksum; // of all corners of the model of 5000 triangles with the seed 7
};

constexpr shape_case k_cases[] = {
    {shape_sphere, 0xe1b3c7e8u}, {shape_plate, 0x9f4a21a6u}, {shape_bracket, 0x79eb76b9u},
    {shape_town, 0x8187ec8eu},   {shape_flat, 0xfca55775u},  {shape_fan, 0xf4249c5du},
};

point corner(const triangle& tr, int i)
{
    return {tr.vtx[i % 3][0], tr.vtx[i % 3][1], tr.vtx[i % 3][2]};
}

std::vector<triangle> all_triangles(const model& m)
{
    std::vector<triangle> trs;
    for (std::uint64_t i = 0; i < m.count; ++i)
        trs.push_back(model_triangle(m, i));
    return trs;
}

double volume(const std::vector<triangle>& trs)
{
    double six = 0.0;
    for (const triangle& tr : trs) {
        const auto at = [&](int i, int axis) { return static_cast<double>(tr.vtx[i][axis]); };
        for (int a = 0; a < 3; ++a) {
            const int b = (a + 1) % 3;
            const int c = (a + 2) % 3;
            six += at(0, a) * (at(1, b) * at(2, c) - at(1, c) * at(2, b));
        }
    }
    return six / 6.0;
}

std::uint32_t checksum(const std::vector<triangle>& trs)
{
    std::uint32_t sum = 2166136261u; // FNV-1a
    for (const triangle& tr : trs) {
        unsigned char bytes[sizeof tr];
        std::memcpy(bytes, &tr, sizeof tr);
        for (const unsigned char byte : bytes)
            sum = (sum ^ byte) * 16777619u;
    }
    return sum;
}

} // namespace

TEST(shapes, are_closed_and_wound_outward)
{
    for (const shape_case& c : k_cases) {
        for (const std::uint64_t wanted : {1u, 1000u, 5000u, 40000u}) {
            SCOPED_TRACE(testing::Message() << shape_name(c.kind) << " " << wanted);
            const model m = make_model(c.kind, wanted, 3);
            const std::vector<triangle> trs = all_triangles(m);

            std::map<edge, int> uses;
            for (const triangle& tr : trs)
                for (int i = 0; i < 3; ++i)
                    ++uses[{corner(tr, i), corner(tr, i + 1)}];
            const auto lonely = [&](const auto& use) {
                const edge& e = use.first;
                return e.first == e.second || use.second != 1 ||
                       uses.count({e.second, e.first}) != 1;
            };
            EXPECT_EQ(std::count_if(uses.begin(), uses.end(), lonely), 0);
            EXPECT_EQ(uses.size(), 3 * m.count);
            EXPECT_GT(volume(trs), 0.0);
        }
    }
}

TEST(shapes, come_near_the_wanted_count)
{
    for (const shape_case& c : k_cases) {
        for (const std::uint64_t wanted : {100000u, 1000000u, 10000000u}) {
            SCOPED_TRACE(testing::Message() << shape_name(c.kind) << " " << wanted);
            const double count = static_cast<double>(make_model(c.kind, wanted, 1).count);
            EXPECT_NEAR(count / static_cast<double>(wanted), 1.0, 0.05);
        }
    }
}

TEST(shapes, are_the_same_numbers_everywhere)
{
    for (const shape_case& c : k_cases) {
        SCOPED_TRACE(shape_name(c.kind));
        EXPECT_EQ(checksum(all_triangles(make_model(c.kind, 5000, 7))), c.checksum);
    }
}

TEST(shapes, shuffling_takes_every_triangle_once)
{
    for (const std::uint64_t wanted : {1u, 5000u, 20000u}) {
        SCOPED_TRACE(wanted);
        const model m = make_model(shape_sphere, wanted, 5);
        std::vector<bool> met(m.count, false);
        std::uint64_t in_place = 0;
        for (std::uint64_t place = 0; place < m.count; ++place) {
            const std::uint64_t index = shuffled_index(m, place);
            ASSERT_LT(index, m.count);
            EXPECT_FALSE(met[index]);
            met[index] = true;
            if (index == place) ++in_place;
        }
        EXPECT_LT(in_place, m.count / 10 + 1);
    }
}

} // namespace velmora::bench
