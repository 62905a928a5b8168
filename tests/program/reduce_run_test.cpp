#include "program/model_run.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>

namespace velmora {
namespace {

using reduce_run = model_run;

void expect_sound_box(const std::string& stl, std::size_t facets, double volume)
{
    const std::vector<facet> got = facets_of(stl);
    EXPECT_EQ(got.size(), facets);
    EXPECT_EQ(stl.size(), 84 + 50 * facets);
    EXPECT_EQ(open_edges(got), 0u);
    EXPECT_NEAR(volume_of(got), volume, 1e-3);
}

TEST_F(reduce_run, log_of_a_plain_run)
{
    dir.write("in.stl", binary_stl(box_mesh(2, 2, 2, 1)));
    const program_result r = dir.run("-f in.stl -o out.stl" + k_reduce);
    const std::string turn = "velmora(info): reducing vertices ...\n"
                             "velmora(info): 0 line vertices reduced (0 triangles).\n"
                             "velmora(info): 0 plane vertices reduced (0 triangles).\n"
                             "velmora(info): 0 short edge vertices reduced (0 triangles).\n"
                             "velmora(info): 0 degen vertices reduced (0 triangles).\n"
                             "velmora(info): 0 triangles removed altogeher.\n";
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.steady_log(),
              "velmora(info): id = VELMORA version 5.0.\n"
              "velmora(info): apparently running from velmora.\n"
              "velmora(info): default 0.000001 point merge tolerance used.\n"
              "velmora(info): 12 triangles read.\n"
              "velmora(info): the ranges of the object are X=(-0.0,2.0) Y=(-0.0,2.0) Z=(-0.0,2.0)\n"
              "velmora(info): extents are X=2.00 Y=2.00 Z=2.00\n"
              "velmora(info): initializing the data structures ...\n"
              "velmora(info): constructing the topology information ...\n"
              "velmora(WARNING): 12 triangles with less than three neigbors.\n"
              "velmora(info): removing degenerated triangles ...\n" +
                  turn + turn +
                  "velmora(WARNING): reduced form 12 triangles to 12 triangles (0.00% reduction).\n"
                  "velmora(info): wrote output file  \"out.stl\" : 12 triangles.\n");
    expect_sound_box(dir.read("out.stl"), 12, 8.0);
}

TEST_F(reduce_run, fine_box_gets_coarser_in_its_place_and_stays_a_box)
{
    dir.write("in.stl", binary_stl(box_mesh(3, 3, 3, 6)));
    for (int pass = 0; pass < 4; ++pass) {
        const std::string before = dir.read("in.stl");
        ASSERT_EQ(dir.run("-f in -F b -o =" + k_reduce).status, 0);
        EXPECT_EQ(dir.read("in.stl~"), before);
        const std::string now = dir.read("in.stl");
        EXPECT_LT(now.size(), before.size());
        expect_sound_box(now, facets_of(now).size(), 27.0);
    }
}

TEST_F(reduce_run, inside_out_box_is_turned)
{
    std::vector<facet> facets = box_mesh(1, 2, 3, 2);
    for (facet& f : facets)
        std::swap(f[1], f[2]);
    dir.write("in.stl", binary_stl(facets));
    ASSERT_EQ(dir.run("-f in.stl -o out.stl -r 1e-9 -c 1 -q 9").status, 0);
    expect_sound_box(dir.read("out.stl"), facets.size(), 6.0);
}

TEST_F(reduce_run, every_mode_keeps_a_sheet_within_its_outline)
{
    dir.write("in.stl", binary_stl(sheet_mesh(8, 8)));
    for (const std::string& way : k_ways) {
        SCOPED_TRACE(way);
        ASSERT_EQ(dir.run("-f in.stl -o out.stl" + way).status, 0);
        const std::vector<facet> got = facets_of(dir.read("out.stl"));
        EXPECT_LE(got.size(), 128u);
        EXPECT_GE(got.size(), 2u);
        double area = 0.0;
        for (const facet& f : got) {
            for (const point& c : f)
                EXPECT_TRUE(c[2] == 0.0f && c[0] >= 0.0f && c[0] <= 8.0f);
            const auto& [a, b, c] = f;
            area += 0.5 * std::fabs(static_cast<double>((b[0] - a[0]) * (c[1] - a[1]) -
                                                        (c[0] - a[0]) * (b[1] - a[1])));
        }
        EXPECT_NEAR(area, 64.0, 1e-3);
    }
}

// admesh has its own parser, nothing of this program's.
TEST_F(reduce_run, another_reader_finds_as_many_triangles)
{
    if (dir.shell("command -v admesh").status != 0) GTEST_SKIP() << "admesh is not installed";
    dir.write("sheet.stl", binary_stl(sheet_mesh(5, 9)));
    const std::string label = "Number of facets                 :";
    for (const std::string in : {"in.stl", "sheet.stl"}) {
        for (const std::string& way : k_ways) {
            for (const std::string out : {"out.stl", "out.astl"}) {
                SCOPED_TRACE(in + way + out);
                const program_result r = dir.run("-f " + in + " -o " + out + way);
                const program_result other = dir.shell("admesh --no-check " + out);
                const int found =
                    std::atoi(other.out.c_str() + other.out.find(label) + label.size());
                EXPECT_GT(found, 1);
                const std::string count = "\" : " + std::to_string(found) + " triangles.\n";
                EXPECT_TRUE(r.says("wrote output file  \"" + out + count)) << r.log;
                const program_result again = dir.run("-f " + out + " -o again.stl" + k_as_is);
                EXPECT_TRUE(again.says("wrote output file  \"again.stl" + count)) << again.log;
            }
        }
    }
}

TEST_F(reduce_run, removed_file_tells_where_vertices_went)
{
    dir.run("-f in.stl -o out.stl -e gone.stl" + k_reduce);
    const std::size_t gone = facets_of(dir.read("gone.stl")).size();
    const std::size_t left = facets_of(dir.read("out.stl")).size();
    EXPECT_GT(gone, 0u);
    EXPECT_EQ(192 - left, 2 * gone);
    for (const facet& f : facets_of(dir.read("gone.stl")))
        EXPECT_EQ(f[0], f[2]);
}

TEST_F(reduce_run, what_stood_before_a_fault_is_processed)
{
    const std::string whole = binary_stl(box_mesh(2, 2, 2, 8));
    std::string nan = whole;
    const float bad = std::numeric_limits<float>::quiet_NaN();
    std::memcpy(nan.data() + 84 + 50 * 200 + 12, &bad, 4);
    std::string many = whole;
    many[81] = 'x';
    struct {
        const char* name;
        std::string bytes;
        const char* log_holds;
        std::size_t facets; // that come out
    } const cases[] = {
        {"half a record", whole.substr(0, 84 + 50 * 300 + 20), "premature EOF", 300},
        {"not a number", nan, "velmora(WARNING): floating-point value is NaN.\n", 200},
        {"a count too large", many, "velmora(WARNING): too few triangles.\n", 768},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        dir.write("in.stl", c.bytes);
        const program_result r = dir.run("-f in.stl -o out.stl" + k_as_is);
        EXPECT_EQ(r.status, 0);
        EXPECT_TRUE(r.says(c.log_holds)) << r.log;
        EXPECT_EQ(facets_of(dir.read("out.stl")).size(), c.facets);
    }
}

} // namespace
} // namespace velmora
