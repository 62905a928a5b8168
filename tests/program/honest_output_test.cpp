// Whatever is written can be read again, and holds no NaN.
#include "program/model_run.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <random>

namespace velmora {
namespace {

/// Bytes that look like models and make no sense.
struct rubbish {
    std::mt19937 rng;

    std::uint32_t below(std::uint32_t limit)
    {
        return static_cast<std::uint32_t>(rng() % limit);
    }
    // Any bits, small whole numbers, or numbers at the ends of their range.
    float number()
    {
        const float ends[] = {1e38f, -1e38f, 1e-38f, 1e-45f, 0.0f, -0.0f, 9.9e9f, 1e10f};
        const auto bits = static_cast<std::uint32_t>(rng());
        float any = 0.0f;
        std::memcpy(&any, &bits, sizeof any);
        const std::uint32_t kind = below(40);
        return kind == 0 ? any : kind < 4 ? ends[below(8)] : static_cast<float>(below(5));
    }
    std::string binary()
    {
        std::vector<facet> facets(20 + below(200));
        for (facet& f : facets)
            for (point& corner : f)
                for (float& c : corner)
                    do
                        c = number();
                    while (std::isnan(c)); // would end the reading there
        return binary_stl(facets);
    }
    std::string native(const std::string& sound)
    {
        std::string model = sound;
        for (std::uint32_t n = 1 + below(20); n > 0; --n)
            model[112 + below(static_cast<std::uint32_t>(model.size()) - 112)] =
                static_cast<char>(below(4) ? below(256) : 255);
        return model;
    }
};

TEST(honest_output, holds_no_nan_whatever_came_in)
{
    const run_folder dir;
    dir.write("box.stl", binary_stl(box_mesh(3, 3, 3, 3)));
    dir.run("-f box.stl -o box.kvd" + k_as_is);
    const std::string sound = dir.read("box.kvd");
    rubbish from = {std::mt19937(7)};
    int written = 0;
    for (std::uint32_t round = 0; round < 40; ++round) {
        SCOPED_TRACE(round);
        const std::string in = round % 2 ? "in.stl" : "in.kvd";
        dir.write(in, round % 2 ? from.binary() : from.native(sound));
        const std::string files = "-f " + in + " -O b -o out.stl -e gone.stl";
        const char* kill = round % 3 ? "" : " -K inf";
        const program_result r = dir.run(files + k_ways[round % 5] + kill);
        EXPECT_EQ(r.status, 0);
        const std::string out = dir.read("out.stl");
        EXPECT_FALSE(has_nan(out));
        EXPECT_FALSE(has_nan(dir.read("gone.stl")));
        const std::size_t left = facets_of(out).size();
        if (left == 0) continue;
        ++written;
        const program_result again = dir.run("-f out.stl -o again.stl -K inf" + k_as_is);
        EXPECT_FALSE(again.says("input file error")) << again.log;
        EXPECT_TRUE(again.says(": " + std::to_string(left) + " triangles read.\n")) << again.log;
    }
    EXPECT_GT(written, 25);
}

} // namespace
} // namespace velmora
