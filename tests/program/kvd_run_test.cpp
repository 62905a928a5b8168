#include "program/model_run.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>

namespace velmora {
namespace {

constexpr std::size_t k_tr_size = 80;

std::vector<facet> sorted_facets(const std::string& stl)
{
    std::vector<facet> all = facets_of(stl);
    std::sort(all.begin(), all.end());
    return all;
}

struct kvd_run : model_run {
    std::string box; ///< reduced: its triangles share vertices and know their neighbours

    kvd_run()
    {
        dir.write("box.stl", binary_stl(box_mesh(3, 3, 3, 4)));
        dir.run("-f box.stl -o box.kvd " + k_reduce);
        box = dir.read("box.kvd");
    }
};

std::size_t vtx_count(const std::string& model)
{
    std::uint32_t count = 0;
    std::memcpy(&count, model.data() + 112, sizeof count);
    return count;
}

std::size_t tr_count(const std::string& model)
{
    return (model.size() - 300 - 12 * vtx_count(model)) / k_tr_size;
}

void set_tr_word(std::string* model, std::size_t tr, std::size_t at, std::uint32_t word)
{
    std::memcpy(model->data() + model->size() - k_tr_size * (tr_count(*model) - tr) + at, &word, 4);
}

TEST_F(kvd_run, a_model_between_gives_the_same_triangles)
{
    for (const std::string& options : {k_as_is, k_reduce}) {
        dir.write("in.stl", binary_stl(box_mesh(3, 2, 1, 5)));
        dir.run("-f in.stl -o straight.stl " + options);
        dir.run("-f in.stl -o between.kvd " + options);
        const program_result r = dir.run("-f between.kvd -o back.stl " + k_as_is);
        EXPECT_EQ(sorted_facets(dir.read("back.stl")), sorted_facets(dir.read("straight.stl")));
        EXPECT_TRUE(r.says("velmora: aborted before reaching EOF.\n"));
    }
    const std::string between = dir.read("between.kvd");
    EXPECT_EQ(vtx_count(between), tr_count(between) / 2 + 2) << "shared, as on any closed surface";
}

TEST_F(kvd_run, a_model_can_be_reduced_further_in_place)
{
    dir.run("-f box.kvd -o = " + k_reduce);
    EXPECT_EQ(dir.read("box.kvd~"), box);
    const std::string after = dir.read("box.kvd");
    ASSERT_GT(after.size(), 300u);
    EXPECT_LT(tr_count(after), tr_count(box));
    dir.run("-f box.kvd -o out.stl " + k_as_is);
    const std::vector<facet> facets = facets_of(dir.read("out.stl"));
    EXPECT_EQ(open_edges(facets), 0u);
    EXPECT_NEAR(volume_of(facets), 27.0, 1e-3);
}

TEST_F(kvd_run, standard_streams_carry_models)
{
    dir.run("-f box.kvd -o named.kvd " + k_as_is);
    const program_result r = dir.run("-F m " + k_as_is + " < box.kvd");
    EXPECT_EQ(r.out, dir.read("named.kvd"));
    EXPECT_TRUE(r.says("wrote output file  \"<stdout>\" : "));
    EXPECT_FALSE(r.says("EOF")) << "the input was read to its end";
    EXPECT_EQ(dir.run("-F m " + k_as_is + " < box.kvd | cat").out, r.out);
    EXPECT_FALSE(dir.has("<stdin>") || dir.has("<stdout>"));

    std::string wrong = box;
    set_tr_word(&wrong, 0, 4, 0x7FFFFFFF);
    dir.write("wrong.kvd", wrong);
    const program_result early = dir.run("-F m " + k_as_is + " < wrong.kvd");
    EXPECT_TRUE(early.says("aborted before reaching EOF")) << "what was read ahead does not count";
}

TEST_F(kvd_run, a_wrong_file_gives_no_output_and_no_number)
{
    std::string no_vertex = box;
    set_tr_word(&no_vertex, 5, 8, 0xFFFFFFFF);
    for (const std::string& bytes : {no_vertex, box + "x", std::string("solid no")}) {
        dir.write("wrong.kvd", bytes);
        const program_result r = dir.run("-f wrong.kvd -o out.kvd " + k_as_is);
        EXPECT_EQ(r.status, 0);
        EXPECT_TRUE(r.says("error number 0.\nvelmora: aborted before reaching EOF.\n"));
        EXPECT_EQ(dir.read("out.kvd"), "");
    }
}

// Whatever a file says of links, marks and places, the run ends by itself and tells.
TEST_F(kvd_run, hostile_models_end_by_themselves)
{
    const std::size_t count = tr_count(box);
    for (std::uint32_t round = 0; round < 12; ++round) {
        std::string hostile = box;
        for (std::size_t t = 0; t < count; ++t) {
            const auto link = static_cast<std::uint32_t>((t * (round + 1) + round) % count);
            for (std::size_t i = 0; i < 3; ++i)
                if (round % 4 != 3) set_tr_word(&hostile, t, 16 + 4 * i, round % 4 ? link : 0);
            if (round % 2) set_tr_word(&hostile, t, 72, 0xFFFFFFFF);
            if (round % 3) set_tr_word(&hostile, t, 76, 0xFFFFFFFF);
        }
        const float odd[] = {std::numeric_limits<float>::quiet_NaN(),
                             std::numeric_limits<float>::infinity(), 3e38f, 1e-42f};
        if (round >= 4) std::memcpy(hostile.data() + 200 + 12 * round, &odd[round % 4], 4);
        dir.write("hostile.kvd", hostile);
        for (const std::string& more : {k_reduce, k_reduce + " -h 0.8 -S -P"}) {
            SCOPED_TRACE(round);
            const program_result r = dir.run("-f hostile.kvd -o out.kvd" + more);
            EXPECT_EQ(r.status, 0);
            EXPECT_TRUE(r.says("wrote output file"));
        }
    }
}

} // namespace
} // namespace velmora
