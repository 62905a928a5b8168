#include "hostile.h"
#include "program/program_run.h"

#include <gtest/gtest.h>

namespace velmora {
namespace {

constexpr std::uint64_t k_count = 140; // more than two bands, and each kind in several leaves

constexpr const char* k_ways[] = {
    "-q 1 -r 1 -c 0.5",         "-q 2 -r 1 -c 0.5 -j 2",         "-q 3 -r 1 -c 0.5 -i 5 -m 1000",
    "-q 4 -r 1 -c 0.5 -a 30",   "-q 1 -r 1 -c 0.5 -S -P -h 0.3", "-q 4 -r 9 -c 0 -a 50 -m 0.5",
    "-q 1 -r 1 -c 0.5 -m 1e-30"};

std::vector<facet> hostile_model(bench::hostile_kind kind)
{
    std::vector<facet> facets(k_count);
    for (std::uint64_t i = 0; i < k_count; ++i) {
        const bench::triangle tr = bench::hostile_triangle(kind, k_count, 1, i);
        for (std::size_t k = 0; k < 9; ++k)
            facets[i][k / 3][k % 3] = tr.vtx[k / 3][k % 3];
    }
    return facets;
}

} // namespace

// In the checked build the counts are audited and the sanitizers look on.
TEST(hostile_run, ends_with_a_model_whatever_it_is_given)
{
    for (int kind = 0; kind < bench::hostile_count; ++kind) {
        const auto hostile = static_cast<bench::hostile_kind>(kind);
        SCOPED_TRACE(bench::hostile_name(hostile));
        const run_folder dir;
        dir.write("in.stl", binary_stl(hostile_model(hostile)));
        for (const char* way : k_ways) {
            SCOPED_TRACE(way);
            const program_result r =
                dir.run(std::string("-f in.stl -o out.stl -e gone.stl -K inf ") + way);
            ASSERT_EQ(r.status, 0) << r.log;
            ASSERT_TRUE(r.says("wrote output file")) << r.log;
            const std::string stl = dir.read("out.stl");
            const std::size_t left = facets_of(stl).size();
            // Nothing is written of a model of which nothing is left.
            EXPECT_EQ(stl.size(), left == 0 ? 0 : 84 + 50 * left);
            EXPECT_LE(left, k_count);
            EXPECT_FALSE(has_nan(stl));
            EXPECT_FALSE(has_nan(dir.read("gone.stl")));
        }
        const std::size_t left = facets_of(dir.read("out.stl")).size();
        const program_result again = dir.run("-f out.stl -o again.stl -K inf -q 4 -r 1 -c 1");
        EXPECT_TRUE(again.says(": " + std::to_string(left) + " triangles read.\n")) << again.log;
    }
}

} // namespace velmora
