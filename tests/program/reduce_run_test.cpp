#include "program/program_run.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>

namespace velmora {
namespace {

constexpr const char* k_mode_1 = "-r 0.01 -c 0.9 -q 1 ";

std::string file_options(const std::string& in, const std::string& out)
{
    return "-f " + in + " -o " + out + " ";
}

testing::AssertionResult is_sound_box(const std::string& stl, std::size_t facets, double volume)
{
    const std::vector<facet> got = facets_of(stl);
    if (got.size() != facets)
        return testing::AssertionFailure() << got.size() << " facets, not " << facets;
    if (stl.size() != 84 + 50 * facets) return testing::AssertionFailure() << "size of the file";
    if (open_edges(got) != 0) return testing::AssertionFailure() << "not closed";
    if (std::fabs(volume_of(got) - volume) > 1e-3)
        return testing::AssertionFailure() << "volume " << volume_of(got);
    return testing::AssertionSuccess();
}

TEST(reduce_run, log_of_a_plain_run)
{
    const run_folder dir;
    dir.write("in.stl", binary_stl(box_mesh(2, 2, 2, 1)));
    const program_result r = dir.run(file_options("in.stl", "out.stl") + k_mode_1);
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
              "velmora(info): removing degenerated triangles ...\n"
              "velmora(info): reducing vertices ...\n"
              "velmora(info): 0 line vertices reduced (0 triangles).\n"
              "velmora(info): 0 plane vertices reduced (0 triangles).\n"
              "velmora(info): 0 short edge vertices reduced (0 triangles).\n"
              "velmora(info): 0 degen vertices reduced (0 triangles).\n"
              "velmora(info): 0 triangles removed altogeher.\n"
              "velmora(info): reducing vertices ...\n"
              "velmora(info): 0 line vertices reduced (0 triangles).\n"
              "velmora(info): 0 plane vertices reduced (0 triangles).\n"
              "velmora(info): 0 short edge vertices reduced (0 triangles).\n"
              "velmora(info): 0 degen vertices reduced (0 triangles).\n"
              "velmora(info): 0 triangles removed altogeher.\n"
              "velmora(WARNING): reduced form 12 triangles to 12 triangles (0.00% reduction).\n"
              "velmora(info): wrote output file  \"out.stl\" : 12 triangles.\n");
    EXPECT_TRUE(is_sound_box(dir.read("out.stl"), 12, 8.0));
}

TEST(reduce_run, fine_box_gets_coarser_and_stays_a_box)
{
    const run_folder dir;
    dir.write("in.stl", binary_stl(box_mesh(3, 3, 3, 6)));
    std::string in = "in.stl";
    std::size_t before = 432;
    for (int pass = 0; pass < 4; ++pass) {
        const std::string out = "out" + std::to_string(pass) + ".stl";
        ASSERT_EQ(dir.run(file_options(in, out) + k_mode_1).status, 0);
        const std::size_t now = facets_of(dir.read(out)).size();
        EXPECT_LT(now, before);
        EXPECT_TRUE(is_sound_box(dir.read(out), now, 27.0));
        before = now;
        in = out;
    }
}

TEST(reduce_run, inside_out_box_is_turned)
{
    std::vector<facet> facets = box_mesh(1, 2, 3, 2);
    for (facet& f : facets)
        std::swap(f.corners[1], f.corners[2]);
    const run_folder dir;
    dir.write("in.stl", binary_stl(facets));
    ASSERT_EQ(dir.run(file_options("in.stl", "out.stl") + "-r 1e-9 -c 1 -q 9").status, 0);
    EXPECT_TRUE(is_sound_box(dir.read("out.stl"), facets.size(), 6.0));
}

TEST(reduce_run, every_mode_keeps_a_sheet_within_its_outline)
{
    const run_folder dir;
    dir.write("in.stl", binary_stl(sheet_mesh(8, 8)));
    for (const char* mode : {"-r 0.01 -c 0.9 -q 1", "-j 1.2 -q 2", "-r 0.01 -c 0.9 -i 3 -q 3",
                             "-r 0.01 -c 0.9 -a 30 -q 4", "-r 1 -c 0.9 -h 0.3 -S -P -q 1"}) {
        SCOPED_TRACE(mode);
        ASSERT_EQ(dir.run(file_options("in.stl", "out.stl") + mode).status, 0);
        const std::vector<facet> got = facets_of(dir.read("out.stl"));
        EXPECT_LE(got.size(), 128u);
        EXPECT_GE(got.size(), 2u);
        double area = 0.0;
        for (const facet& f : got) {
            for (const auto& c : f.corners)
                EXPECT_TRUE(c[2] == 0.0f && c[0] >= 0.0f && c[0] <= 8.0f);
            const float(*c)[3] = f.corners;
            area += 0.5 * std::fabs(static_cast<double>((c[1][0] - c[0][0]) * (c[2][1] - c[0][1]) -
                                                        (c[2][0] - c[0][0]) * (c[1][1] - c[0][1])));
        }
        EXPECT_NEAR(area, 64.0, 1e-3);
    }
}

TEST(reduce_run, text_and_binary_give_the_same_triangles)
{
    const run_folder dir;
    const std::vector<facet> facets = box_mesh(2, 2, 2, 4);
    dir.write("b.stl", binary_stl(facets));
    dir.write("a.astl", ascii_stl(facets));
    ASSERT_EQ(dir.run(file_options("b.stl", "b_out.stl") + k_mode_1).status, 0);
    ASSERT_EQ(dir.run(file_options("a.astl", "a_out.stl") + k_mode_1).status, 0);
    EXPECT_EQ(dir.read("a_out.stl"), dir.read("b_out.stl"));
    ASSERT_EQ(dir.run(file_options("b.stl", "t.astl") + k_mode_1).status, 0);
    EXPECT_EQ(dir.read("t.astl").substr(0, 26), "solid VELMORA version 5.0\n");
}

TEST(reduce_run, in_place_keeps_the_original_under_its_name_with_a_tilde)
{
    const run_folder dir;
    const std::string model = binary_stl(box_mesh(2, 2, 2, 4));
    dir.write("part.stl", model);
    ASSERT_EQ(dir.run(file_options("part", "= -F b") + k_mode_1).status, 0);
    EXPECT_EQ(dir.read("part.stl~"), model);
    EXPECT_LT(dir.read("part.stl").size(), model.size());
}

TEST(reduce_run, removed_file_tells_where_vertices_went)
{
    const run_folder dir;
    dir.write("in.stl", binary_stl(box_mesh(2, 2, 2, 4)));
    const program_result r = dir.run(file_options("in.stl", "out.stl") + "-e gone.stl " + k_mode_1);
    const std::size_t gone = facets_of(dir.read("gone.stl")).size();
    const std::size_t left = facets_of(dir.read("out.stl")).size();
    EXPECT_GT(gone, 0u);
    EXPECT_EQ(192 - left, 2 * gone);
    for (const facet& f : facets_of(dir.read("gone.stl")))
        EXPECT_TRUE(std::equal(f.corners[0], f.corners[0] + 3, f.corners[2]));
}

TEST(reduce_run, what_stood_before_a_fault_is_processed)
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
        {"nothing", "", "velmora(info): 0 triangles read.\n", 0},
        {"only a header", whole.substr(0, 84), "too few triangles.\n", 0},
        {"half a record", whole.substr(0, 84 + 50 * 300 + 20), "premature EOF", 300},
        {"not a number", nan, "velmora(WARNING): floating-point value is NaN.\n", 200},
        {"a count too large", many, "velmora(WARNING): too few triangles.\n", 768},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const run_folder dir;
        dir.write("in.stl", c.bytes);
        const program_result r = dir.run(file_options("in.stl", "out.stl") + "-r 1 -c 0.9 -q 4");
        EXPECT_EQ(r.status, 0);
        EXPECT_NE(r.log.find(c.log_holds), std::string::npos) << r.log;
        EXPECT_EQ(facets_of(dir.read("out.stl")).size(), c.facets);
    }
}

} // namespace
} // namespace velmora
