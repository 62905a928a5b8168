#include "files/stl_fixture.h"
#include "mesh/memory.h"

#include <unistd.h>

using namespace velmora;

static const char* const k_id = "a header text";

static stl_stream* open_writer(std::FILE* file, std::uint32_t format, const char* id)
{
    stl_stream* s = open_stl(file, format, stl_writing);
    stl_set(s, stl_prop_id, const_cast<char*>(id));
    return s;
}

static std::string written(std::uint32_t format, const char* id, int count, const stl_tri& tri)
{
    std::FILE* file = std::tmpfile();
    stl_stream* s = open_writer(file, format, id);
    for (int i = 0; i < count; ++i)
        EXPECT_EQ(stl_put_triangle(s, &tri), 1);
    EXPECT_EQ(stl_flush(s), 1);
    EXPECT_EQ(stl_close(s), id ? 1 : 0);
    std::string bytes = bytes_of(file);
    std::fclose(file);
    return bytes;
}

static const stl_tri k_tri = {{0, 0, 1}, {-0.0f, 0, 0}, {1, 0, 0}, {0.5f, 1e10f, 0}, 0xabcd};

TEST(stl_write, text_has_this_very_layout)
{
    EXPECT_EQ(written(stl_format_ascii, k_id, 1, k_tri),
              "solid a header text\n"
              "facet normal 0.000000 0.000000 1.000000 \n"
              "outer loop\n"
              " vertex -0.000000 0.000000 0.000000 \n"
              " vertex 1.000000 0.000000 0.000000 \n"
              " vertex 0.500000 10000000000.000000 0.000000 \n"
              "endloop\n"
              "endfacet\n"
              "endsolid a header text\n");
    EXPECT_EQ(written(stl_format_ascii, nullptr, 1, k_tri).substr(0, 7), "solid \n");
}

TEST(stl_write, binary_has_header_count_and_records)
{
    const std::string bytes = written(stl_format_binary, k_id, 25, k_tri);
    std::string header = k_id;
    header.resize(80, ' ');
    append_u32(&header, 25);
    ASSERT_EQ(bytes.size(), 84u + 50u * 25u);
    EXPECT_EQ(bytes.substr(0, 84), header);
    EXPECT_EQ(bytes.substr(84 + 48, 2), std::string(2, '\0')) << "attributes are not kept";
    EXPECT_EQ(written(stl_format_unset, k_id, 25, k_tri), bytes);
    EXPECT_EQ(read_file(bytes, stl_format_binary).tris.size(), 25u);
    EXPECT_EQ(read_file(bytes, stl_format_binary).tris[24].corner3[1], 1e10f);
}

TEST(stl_write, a_long_header_text_is_cut_in_binary_only)
{
    for (const std::size_t length : {80u, 81u, 1000u}) {
        const std::string id(length, 'i');
        EXPECT_EQ(written(stl_format_binary, id.c_str(), 1, k_tri).substr(0, 80),
                  std::string(80, 'i'));
        EXPECT_EQ(written(stl_format_ascii, id.c_str(), 1, k_tri).substr(0, 7 + length),
                  "solid " + id + "\n");
    }
}

TEST(stl_write, nothing_put_is_nothing_written)
{
    EXPECT_EQ(written(stl_format_ascii, k_id, 0, k_tri), "");
    EXPECT_EQ(written(stl_format_binary, k_id, 0, k_tri), "");
    EXPECT_EQ(stl_close(nullptr), 1);
}

TEST(stl_write, an_announced_count_bounds_the_file_and_is_not_patched)
{
    std::FILE* file = std::tmpfile();
    stl_stream* s = open_writer(file, stl_format_binary, k_id);
    set_word(s, stl_prop_tri_declared, 2);
    set_word(s, stl_prop_keep_attr, 1);
    EXPECT_EQ(stl_put_triangle(s, &k_tri), 1);
    EXPECT_EQ(stl_put_triangle(s, &k_tri), 1);
    EXPECT_EQ(stl_put_triangle(s, &k_tri), 0);
    EXPECT_EQ(stl_error(s), nullptr);
    EXPECT_EQ(stl_close(s), 1);
    EXPECT_EQ(std::ftell(file), 184);
    EXPECT_EQ(bytes_of(file).substr(80, 4), std::string("\2\0\0\0", 4));
    EXPECT_EQ(bytes_of(file).substr(84 + 48, 2), "\xcd\xab");
    std::fclose(file);
}

TEST(stl_write, a_pipe_fails_the_finish_and_the_stream_stays)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    std::FILE* file = fdopen(ends[1], "wb");
    stl_stream* s = open_writer(file, stl_format_binary, k_id);
    EXPECT_EQ(stl_put_triangle(s, &k_tri), 1);
    EXPECT_EQ(stl_close(s), 0);
    EXPECT_STREQ(stl_error(s), "write error");
    set_word(s, stl_prop_tri_declared, 1); // nothing to patch then
    EXPECT_EQ(stl_close(s), 1);
    std::fclose(file);
    close(ends[0]);
}

TEST(stl_write, a_full_disk_is_noticed_by_the_flush_at_the_latest)
{
    std::FILE* full = std::fopen("/dev/full", "wb");
    if (!full) GTEST_SKIP();
    for (const std::uint32_t format : {stl_format_ascii, stl_format_binary}) {
        stl_stream* s = open_writer(full, format, k_id);
        while (format == stl_format_ascii && stl_put_triangle(s, &k_tri)) {}
        EXPECT_EQ(stl_flush(s), 0);
        EXPECT_EQ(s->error, stl_err_write);
        s->direction = stl_reading; // no finish
        EXPECT_EQ(stl_close(s), 1);
    }
    std::fclose(full);
}

TEST(stl_write, without_memory_for_the_block_nothing_is_put)
{
    std::FILE* file = std::tmpfile();
    stl_stream* s = open_writer(file, stl_format_ascii, k_id);
    testing::internal::CaptureStderr();
    heap_fail_nth(1);
    EXPECT_EQ(stl_put_triangle(s, &k_tri), 0);
    heap_fail_nth(1);
    EXPECT_EQ(stl_set(s, stl_prop_id, const_cast<char*>("other")), 0);
    testing::internal::GetCapturedStderr();
    heap_fail_nth(0);
    char id[k_stl_header_size + 1];
    EXPECT_EQ(stl_get(s, stl_prop_id, id), 1);
    EXPECT_STREQ(id, k_id);
    stl_close(s);
    std::fclose(file);
}

TEST(stl_write, properties_without_a_form_are_refused)
{
    stl_stream* s = stl_open();
    std::uint32_t word = 7;
    for (const int property : {0, 6, 7, 8, 9, 12, 14, 20})
        EXPECT_EQ(stl_set(s, property, &word), 0) << property;
    char out[k_stl_header_size + 1];
    for (const int property : {0, 3, 5, 10, 11, 13, 15, 19})
        EXPECT_EQ(stl_get(s, property, out), 0) << property;
    const char* text = nullptr;
    EXPECT_EQ(stl_get(s, stl_prop_error_text, &text), 1);
    EXPECT_STREQ(text, "success");
    EXPECT_STREQ(stl_error_text(11), "<unknown>");
    EXPECT_EQ(stl_close(s), 0);
}
