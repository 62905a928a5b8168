#include "files/stl_fixture.h"

#include <cerrno>
#include <cmath>

using namespace velmora;

static read_outcome read_binary(const std::string& bytes)
{
    return read_file(bytes, stl_format_binary);
}

static const std::string k_record = binary_record(1.0f, 0x8123);

TEST(stl_binary, endings)
{
    std::string nan = binary_header(3) + k_record + binary_record(NAN) + k_record;
    const std::vector<ending> endings = {
        {"as announced", binary_header(2) + repeated(k_record, 2), 2, stl_err_none},
        {"nothing announced", binary_header(0) + repeated(k_record, 30), 30, stl_err_none},
        {"nothing at all", "", 0, stl_err_none},
        {"header only", binary_header(0), 0, stl_err_none},
        {"cut in the header text", "solid", 0, stl_err_premature_end},
        {"cut in the count", binary_header(0).substr(0, 83), 0, stl_err_premature_end},
        {"too few", binary_header(3) + repeated(k_record, 2), 2, stl_err_too_few},
        {"cut in a float", binary_header(3) + k_record + "abc", 1, stl_err_premature_end},
        {"cut in the attribute", binary_header(1) + k_record.substr(0, 49), 0,
         stl_err_premature_end},
        {"a header too short behind the last", binary_header(1) + k_record + "x", 1,
         stl_err_premature_end},
        {"an empty further solid", binary_header(1) + k_record + binary_header(2), 1,
         stl_err_too_few},
        {"a NaN", nan, 1, stl_err_nan},
        {"infinity passes", binary_header(1) + binary_record(INFINITY), 1, stl_err_none},
        {"a great count", binary_header(0xffffffffu) + k_record, 1, stl_err_too_few},
    };
    expect_endings(stl_format_binary, endings);
}

TEST(stl_binary, records_are_little_endian_and_solids_follow_each_other)
{
    const std::string one = binary_header(1) + binary_record(0.5f);
    const read_outcome got = read_binary(one + binary_header(2) + repeated(k_record, 2) + one);
    EXPECT_EQ(got.results, (std::vector<int>{1, 2, 1, 2, 0}));
    EXPECT_EQ(got.tris[0].normal[0], 0.5f);
    EXPECT_EQ(got.tris[1].corner1[0], 4.0f);
    EXPECT_EQ(got.tris[1].corner3[2], 12.0f);
    EXPECT_EQ(got.tris[1].attr, 0u) << "kept only where it is asked for";
    EXPECT_EQ(got.id, std::string(80, 'h'));
}

// Whether a run met the end of its input is told from the handle, so no byte is read too soon.
TEST(stl_binary, the_end_shows_when_a_block_comes_short)
{
    EXPECT_TRUE(read_binary(binary_header(1) + k_record).saw_end) << "looks for a header";
    const std::string nan = binary_header(0) + binary_record(NAN);
    EXPECT_FALSE(read_binary(nan).saw_end) << "the block has the size of a small file";
    EXPECT_FALSE(read_binary(nan + std::string(512 - nan.size(), 'x')).saw_end);
    EXPECT_FALSE(read_binary(nan + std::string(513 - nan.size(), 'x')).saw_end);
    const std::string before = binary_header(0) + repeated(k_record, 9);
    EXPECT_TRUE(read_binary(before + binary_record(NAN)).saw_end) << "in the short last block";
    // Record 8 begins at 484: its sixth float ends at 508, its eighth lies behind the first block.
    std::string straddling = binary_header(0) + repeated(k_record, 8) + binary_record(1.0f);
    straddling.replace(484 + 4 * 5, 4, "\xff\xff\xff\xff");
    EXPECT_FALSE(read_binary(straddling).saw_end) << "a NaN in front of the last block";
}

TEST(stl_binary, attributes)
{
    // The first attribute word announces three bytes, the second one more than there are.
    const std::string bytes =
        binary_header(2) + binary_record(1.0f, 3) + "xyz" + binary_record(2.0f, 5) + "xyz";
    for (const bool keep : {false, true}) {
        std::FILE* file = file_with(bytes);
        stl_stream* s = open_stl(file, stl_format_binary, stl_reading);
        set_word(s, stl_prop_keep_attr, keep);
        stl_set(s, stl_prop_plain_attr, nullptr);
        const read_outcome got = drain(s);
        ASSERT_EQ(got.tris.size(), keep ? 2u : 1u);
        EXPECT_EQ(got.tris[0].attr, keep ? 3u : 0u);
        EXPECT_EQ(got.error, stl_err_premature_end);
        stl_close(s);
        std::fclose(file);
    }
}

TEST(stl_binary, a_failed_read_is_a_read_error_inside_a_record_only)
{
    for (const std::size_t fails_at : {84u + 50u, 84u + 55u}) {
        block_source source;
        source.bytes = binary_header(0) + repeated(k_record, 2);
        source.fails_at = fails_at;
        stl_stream* s = open_hooked(&source, stl_format_binary, false);
        const read_outcome got = drain(s);
        EXPECT_EQ(got.tris.size(), 1u);
        EXPECT_EQ(got.error, fails_at == 134 ? stl_err_none : stl_err_read);
        stl_close(s);
    }
    std::FILE* directory = std::fopen(".", "rb");
    stl_stream* s = open_stl(directory, stl_format_binary, stl_reading);
    EXPECT_EQ(drain(s).results, (std::vector<int>{0}));
    std::int32_t reason = 0;
    stl_get(s, stl_prop_sys_errno, &reason);
    EXPECT_EQ(reason, EISDIR);
    stl_close(s);
    std::fclose(directory);
}

TEST(stl_binary, detection_looks_at_the_first_block)
{
    const std::string text = "solid\n" + k_facet + "endsolid\n";
    EXPECT_EQ(read_file(text, stl_format_detect).results.size(), 2u);
    EXPECT_EQ(read_file(text, stl_format_unset).error, stl_err_none);
    std::string solid = binary_header(1) + k_record;
    solid.replace(0, 5, "solid");
    EXPECT_EQ(read_file(solid, stl_format_detect).tris.size(), 1u);
    EXPECT_EQ(read_file(binary_header(1) + k_record, stl_format_detect).tris.size(), 1u);
    EXPECT_EQ(read_file("", stl_format_detect).error, stl_err_none);
    EXPECT_EQ(read_file("x", stl_format_detect).error, stl_err_premature_end);
}

TEST(stl_binary, the_size_filter_drops_and_the_box_grows)
{
    block_source source;
    source.bytes = binary_header(0) + k_record;
    std::string large = k_record;
    large.replace(48 - 12, 4, std::string("\0\0\xc8\x42", 4)); // third corner at x = 100
    source.bytes += large + k_record;
    stl_stream* s = open_hooked(&source, stl_format_binary, false);
    float limits[3] = {6.0f, 6.0f, 6.0f}; // just what the small ones measure
    float box[6] = {5.0f, 5.0f, 99.0f, -99.0f, 99.0f, -99.0f};
    stl_set(s, stl_prop_filter, limits);
    stl_set(s, stl_prop_bbox, box);
    const read_outcome got = drain(s);
    EXPECT_EQ(got.tris.size(), 2u);
    EXPECT_EQ(got.filtered, 1u);
    EXPECT_EQ(got.tri_done, 3u);
    EXPECT_EQ(box[0], 4.0f);
    EXPECT_EQ(box[1], 10.0f);
    EXPECT_EQ(box[5], 12.0f);
    stl_close(s);
}
