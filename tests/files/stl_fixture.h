// tests/files/stl_fixture.h - bytes in, what a stream made of them out.
//
// Bytes reach the stream through a real temporary file, or in blocks of a chosen size through the
// io hook, which counts the blocks: asking for a block too many would be seen as an early end.
#pragma once

#include "files/stl_stream.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace velmora {

/// Everything that a caller can see of a reading.
struct read_outcome {
    std::vector<stl_tri> tris;
    std::vector<int> results; ///< of each call, the last one is 0
    std::uint32_t error = 0;
    std::uint32_t tri_done = 0;
    std::uint32_t filtered = 0;
    std::string id;
    bool saw_end = false; ///< the handle has seen its end; files only
    int blocks = 0;       ///< blocks asked for; hooked readings only
};

inline void set_word(stl_stream* s, int property, std::uint32_t value)
{
    ASSERT_EQ(stl_set(s, property, &value), 1);
}

inline stl_stream* open_stl(std::FILE* handle, std::uint32_t format, std::uint32_t direction)
{
    stl_stream* s = stl_open();
    stl_set(s, stl_prop_handle, handle);
    set_word(s, stl_prop_format, format);
    set_word(s, stl_prop_direction, direction);
    return s;
}

inline read_outcome drain(stl_stream* s)
{
    read_outcome got;
    stl_tri tri = {};
    do {
        got.results.push_back(stl_get_triangle(s, &tri));
        if (got.results.back() != 0) got.tris.push_back(tri);
    } while (got.results.back() != 0);
    char id[k_stl_header_size + 1];
    stl_get(s, stl_prop_id, id);
    got.id = id;
    stl_get(s, stl_prop_error, &got.error);
    stl_get(s, stl_prop_tri_done, &got.tri_done);
    stl_get(s, stl_prop_filtered, &got.filtered);
    return got;
}

inline std::FILE* file_with(const std::string& bytes)
{
    std::FILE* file = std::tmpfile();
    std::fwrite(bytes.data(), 1, bytes.size(), file);
    std::rewind(file);
    return file;
}

inline std::string bytes_of(std::FILE* file)
{
    std::string bytes;
    std::fflush(file);
    std::rewind(file);
    for (int c = std::fgetc(file); c != EOF; c = std::fgetc(file))
        bytes += static_cast<char>(c);
    return bytes;
}

inline read_outcome read_file(const std::string& bytes, std::uint32_t format)
{
    std::FILE* file = file_with(bytes);
    stl_stream* s = open_stl(file, format, stl_reading);
    read_outcome got = drain(s);
    got.saw_end = std::feof(file) != 0;
    stl_close(s);
    std::fclose(file);
    return got;
}

/// What a file with these bytes gives, and how its reading ends.
struct ending {
    const char* name;
    std::string bytes;
    std::size_t tris;
    std::uint32_t error;
};

inline void expect_endings(std::uint32_t format, const std::vector<ending>& endings)
{
    for (const ending& e : endings) {
        SCOPED_TRACE(e.name);
        const read_outcome got = read_file(e.bytes, format);
        EXPECT_EQ(got.tris.size(), e.tris);
        EXPECT_EQ(got.error, e.error);
    }
}

/// Bytes handed out in blocks.
struct block_source {
    std::string bytes;
    std::size_t block = 512;      ///< bytes per block, at most 512
    std::size_t fails_at = ~0ull; ///< position of a read failure
    std::size_t next = 0;
    int blocks = 0;
};

inline std::uint32_t hand_out_block(stl_stream* s)
{
    auto* source = static_cast<block_source*>(s->user_word);
    ++source->blocks;
    const std::size_t end = std::min(source->bytes.size(), source->fails_at);
    const std::size_t n = std::min(source->block, end - source->next);
    std::memcpy(s->buffer, source->bytes.data() + source->next, n);
    source->next += n;
    if (n == 0) s->state |= end == source->fails_at ? stl_state_failed : stl_state_end;
    return static_cast<std::uint32_t>(n);
}

inline int count_a_byte(void* /*stream*/)
{
    return 1;
}

/// With `by_bytes` a progress hook watches every byte, so that nothing is taken in one go.
inline stl_stream* open_hooked(block_source* source, std::uint32_t format, bool by_bytes)
{
    stl_stream* s = open_stl(nullptr, format, stl_reading);
    stl_set(s, stl_prop_user_word, source);
    s->io_hook = hand_out_block;
    if (by_bytes) stl_set(s, stl_prop_progress_hook, reinterpret_cast<void*>(count_a_byte));
    return s;
}

inline void append_u32(std::string* bytes, std::uint32_t value)
{
    for (int shift = 0; shift < 32; shift += 8)
        *bytes += static_cast<char>(value >> shift & 0xffu);
}

inline std::string binary_header(std::uint32_t count)
{
    std::string bytes(k_stl_header_size, 'h');
    append_u32(&bytes, count);
    return bytes;
}

/// Twelve floats `first`, `first` + 1, ... and an attribute word.
inline std::string binary_record(float first, std::uint32_t attr = 0)
{
    std::string bytes;
    for (int i = 0; i < 12; ++i)
        append_u32(&bytes, std::bit_cast<std::uint32_t>(first + static_cast<float>(i)));
    bytes += static_cast<char>(attr & 0xffu);
    bytes += static_cast<char>(attr >> 8 & 0xffu);
    return bytes;
}

inline const std::string k_facet = "facet normal 0 0 1 outer loop vertex 1 2 3 vertex 4 5 6\n"
                                   "vertex 7 8 9 endloop endfacet\n";

inline std::string repeated(const std::string& text, int times)
{
    std::string all;
    for (int i = 0; i < times; ++i)
        all += text;
    return all;
}

} // namespace velmora
