#include "program/model_run.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>

namespace velmora {
namespace {

constexpr std::size_t k_tr_size = 80;

std::vector<std::array<float, 9>> sorted_corners(const std::string& stl)
{
    std::vector<std::array<float, 9>> all;
    for (const facet& f : facets_of(stl)) {
        all.emplace_back();
        std::memcpy(all.back().data(), f.corners, sizeof f.corners);
    }
    std::sort(all.begin(), all.end());
    return all;
}

// A reduced box: its triangles share vertices and know their neighbours.
std::string box_model(const run_folder& dir)
{
    dir.write("box.stl", binary_stl(box_mesh(3, 3, 3, 4)));
    dir.run(std::string("-f box.stl -o box.kvd ") + k_reduce);
    return dir.read("box.kvd");
}

std::uint32_t word_at(const std::string& bytes, std::size_t at)
{
    std::uint32_t word = 0;
    std::memcpy(&word, bytes.data() + at, sizeof word);
    return word;
}

std::size_t vtx_count(const std::string& model)
{
    return word_at(model, 112);
}

std::size_t tr_count(const std::string& model)
{
    return (model.size() - 300 - 12 * vtx_count(model)) / k_tr_size;
}

void set_tr_word(std::string* model, std::size_t tr, std::size_t at, std::uint32_t word)
{
    std::memcpy(model->data() + model->size() - k_tr_size * (tr_count(*model) - tr) + at, &word, 4);
}

TEST(kvd_run, a_model_between_gives_the_same_triangles)
{
    const run_folder dir;
    for (const std::string options : {k_as_is, k_reduce}) {
        dir.write("in.stl", binary_stl(box_mesh(3, 2, 1, 5)));
        dir.run("-f in.stl -o straight.stl " + options);
        dir.run("-f in.stl -o between.kvd " + options);
        const program_result r = dir.run(std::string("-f between.kvd -o back.stl ") + k_as_is);
        EXPECT_EQ(sorted_corners(dir.read("back.stl")), sorted_corners(dir.read("straight.stl")));
        EXPECT_NE(r.log.find("velmora: aborted before reaching EOF.\n"), std::string::npos);
    }
    const std::string model = dir.read("between.kvd");
    EXPECT_EQ(vtx_count(model), tr_count(model) / 2 + 2) << "shared, as on any closed surface";
}

TEST(kvd_run, a_model_can_be_reduced_further_in_place)
{
    const run_folder dir;
    const std::string before = box_model(dir);
    dir.run(std::string("-f box.kvd -o = ") + k_reduce);
    EXPECT_EQ(dir.read("box.kvd~"), before);
    const std::string after = dir.read("box.kvd");
    ASSERT_GT(after.size(), 300u);
    EXPECT_LT(tr_count(after), tr_count(before));
    dir.run(std::string("-f box.kvd -o out.stl ") + k_as_is);
    const std::vector<facet> facets = facets_of(dir.read("out.stl"));
    EXPECT_EQ(open_edges(facets), 0u);
    EXPECT_NEAR(volume_of(facets), 27.0, 1e-3);
}

TEST(kvd_run, standard_streams_carry_models)
{
    const run_folder dir;
    const std::string model = box_model(dir);
    dir.run(std::string("-f box.kvd -o named.kvd ") + k_as_is);
    const program_result r = dir.run(std::string("-F m ") + k_as_is + " < box.kvd");
    EXPECT_EQ(r.out, dir.read("named.kvd"));
    EXPECT_NE(r.log.find("wrote output file  \"<stdout>\" : "), std::string::npos);
    EXPECT_EQ(r.log.find("EOF"), std::string::npos) << "the input was read to its end";
    EXPECT_EQ(dir.run(std::string("-F m ") + k_as_is + " < box.kvd | cat").out, r.out);
    EXPECT_FALSE(dir.has("<stdin>") || dir.has("<stdout>"));

    std::string wrong = model;
    set_tr_word(&wrong, 0, 4, 0x7FFFFFFF);
    dir.write("wrong.kvd", wrong);
    const program_result early = dir.run(std::string("-F m ") + k_as_is + " < wrong.kvd");
    EXPECT_NE(early.log.find("aborted before reaching EOF"), std::string::npos)
        << "what was read ahead does not count";
}

TEST(kvd_run, a_wrong_file_gives_no_output_and_no_number)
{
    const run_folder dir;
    std::string no_vertex = box_model(dir);
    set_tr_word(&no_vertex, 5, 8, 0xFFFFFFFF);
    for (const std::string& bytes :
         {no_vertex, dir.read("box.kvd") + "x", std::string("solid no")}) {
        dir.write("wrong.kvd", bytes);
        const program_result r = dir.run(std::string("-f wrong.kvd -o out.kvd ") + k_as_is);
        EXPECT_EQ(r.status, 0);
        EXPECT_NE(r.log.find("error number 0.\nvelmora: aborted before reaching EOF.\n"),
                  std::string::npos);
        EXPECT_EQ(dir.read("out.kvd"), "");
    }
}

// Whatever a file says of links, marks and places, the run ends by itself and tells.
TEST(kvd_run, hostile_models_end_by_themselves)
{
    const run_folder dir;
    const std::string model = box_model(dir);
    const std::size_t count = tr_count(model);
    for (std::uint32_t round = 0; round < 12; ++round) {
        std::string hostile = model;
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
        for (const char* options : {k_reduce, "-q 1 -r 0.1 -c 0.5 -h 0.8 -S -P "}) {
            SCOPED_TRACE(round);
            const program_result r = dir.run(std::string("-f hostile.kvd -o out.kvd ") + options);
            EXPECT_EQ(r.status, 0);
            EXPECT_NE(r.log.find("wrote output file"), std::string::npos);
        }
    }
}

} // namespace
} // namespace velmora
