// Whatever is written can be read again, by an independent reader too, and holds no NaN.
#include "program/model_run.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <random>

namespace velmora {
namespace {

constexpr const char* k_ways[] = {" -q 1 -r 0.05 -c 0.9", " -q 2 -j 0.8",
                                  " -q 3 -r 0.05 -c 0.9 -i 2", " -q 4 -r 0.1 -c 0.9 -a 35",
                                  " -q 1 -r 1 -c 0.9 -S -P -h 0.4"};

// The number behind `label`, or -1.
long number_after(const std::string& text, const std::string& label)
{
    const std::size_t at = text.find(label);
    return at == std::string::npos ? -1 : std::atol(text.c_str() + at + label.size());
}

long triangles_written(const program_result& r, const std::string& name)
{
    return number_after(r.log, "wrote output file  \"" + name + "\" : ");
}

// admesh has its own parser, nothing of this program's.
TEST(honest_output, another_reader_finds_as_many_triangles)
{
    const run_folder dir;
    if (dir.shell("command -v admesh").status != 0) GTEST_SKIP() << "no admesh";
    dir.write("box.stl", binary_stl(box_mesh(3, 3, 3, 5)));
    dir.write("sheet.stl", binary_stl(sheet_mesh(5, 9)));
    for (const char* in : {"box.stl", "sheet.stl"}) {
        for (const char* way : k_ways) {
            for (const char* out : {"out.stl", "out.astl"}) {
                SCOPED_TRACE(std::string(in) + way + out);
                const program_result r = dir.run(std::string("-f ") + in + " -o " + out + way);
                const long written = triangles_written(r, out);
                EXPECT_GT(written, 1);
                const program_result other = dir.shell(std::string("admesh --no-check ") + out);
                EXPECT_EQ(other.status, 0) << other.log;
                EXPECT_EQ(number_after(other.out, "Number of facets                 :"), written);
                const program_result again =
                    dir.run(std::string("-f ") + out + " -o again.stl" + k_as_is);
                EXPECT_EQ(triangles_written(again, "again.stl"), written);
            }
        }
    }
}

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
        if (triangles_written(r, "out.stl") < 1) continue;
        ++written;
        const program_result again = dir.run("-f out.stl -o again.stl -K inf" + k_as_is);
        EXPECT_FALSE(again.says("input file error")) << again.log;
        EXPECT_EQ(number_after(again.log, "default 0.000001 point merge tolerance used.\nvelmora("
                                          "info): "),
                  static_cast<long>(facets_of(out).size()));
    }
    EXPECT_GT(written, 25);
}

} // namespace
} // namespace velmora
