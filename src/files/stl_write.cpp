#include "files/stl_bytes.h"
#include "files/stl_number.h"
#include "files/stl_stream.h"
#include "mesh/memory.h"

#include <bit>
#include <cstring>

namespace velmora {

constexpr long k_count_offset = 80;          ///< of the count in a binary file
constexpr std::uint32_t k_vectors_size = 48; ///< bytes of a record in front of the attribute word

// Text --------------------------------------------------------------------------------------------

static bool put_text(stl_stream* s, const char* text)
{
    return stl_put_bytes(s, text, std::strlen(text));
}

static bool put_id_line(stl_stream* s, const char* keyword)
{
    return put_text(s, keyword) && put_text(s, s->id ? s->id : "") && put_text(s, "\n");
}

static char* add_text(char* out, const char* text)
{
    const std::size_t length = std::strlen(text);
    std::memcpy(out, text, length); // NOLINT(bugprone-not-null-terminated-result): more follows
    return out + length;
}

// Each number has its blank behind it, the last one too.
static char* add_vec_line(char* out, const char* keyword, const float* vec)
{
    out = add_text(out, keyword);
    for (int i = 0; i < 3; ++i) {
        out = put_fixed(out, vec[i]);
        *out++ = ' ';
    }
    *out++ = '\n';
    return out;
}

static bool put_ascii_triangle(stl_stream* s, const stl_tri* tri)
{
    char text[12 * k_fixed_size + 128];
    char* end = add_vec_line(text, "facet normal ", tri->normal);
    end = add_text(end, "outer loop\n");
    end = add_vec_line(end, " vertex ", tri->corner1);
    end = add_vec_line(end, " vertex ", tri->corner2);
    end = add_vec_line(end, " vertex ", tri->corner3);
    end = add_text(end, "endloop\nendfacet\n");
    return stl_put_bytes(s, text, static_cast<std::size_t>(end - text));
}

// Binary ------------------------------------------------------------------------------------------

static bool put_binary_header(stl_stream* s)
{
    char header[k_stl_header_size];
    std::memset(header, ' ', sizeof header);
    if (s->id) std::memcpy(header, s->id, strnlen(s->id, sizeof header));
    if (!stl_put_bytes(s, header, sizeof header)) return false;
    if (s->handle && s->handle != stdout)
        s->count_pos = static_cast<std::uint32_t>(std::ftell(s->handle));
    return stl_put_u32(s, s->tri_declared);
}

static void encode_vec(unsigned char* at, const float* vec)
{
    for (int i = 0; i < 3; ++i, at += 4)
        stl_encode_u32(at, std::bit_cast<std::uint32_t>(vec[i]));
}

static bool put_binary_triangle(stl_stream* s, const stl_tri* tri)
{
    unsigned char record[k_vectors_size];
    encode_vec(record, tri->normal);
    encode_vec(record + 12, tri->corner1);
    encode_vec(record + 24, tri->corner2);
    encode_vec(record + 36, tri->corner3);
    if (!stl_put_bytes(s, record, sizeof record)) return false;

    const std::uint32_t word = s->keep_attr ? tri->attr : 0;
    const unsigned char attr[2] = {static_cast<unsigned char>(word),
                                   static_cast<unsigned char>(word >> 8)};
    const bool written = stl_put_bytes(s, attr, sizeof attr);
    return written ||
           s->keep_attr; // a kept attribute is an extra, its loss shows in the error only
}

// Both --------------------------------------------------------------------------------------------

static bool put_header(stl_stream* s)
{
    if (s->flags & stl_flag_header_written) return true;
    if (s->format == stl_format_unset) s->format = stl_format_binary;
    const bool ascii = s->format == stl_format_ascii;
    if (!(ascii ? put_id_line(s, "solid ") : put_binary_header(s))) return false;
    s->flags |= stl_flag_header_written;
    return true;
}

int stl_put_triangle(stl_stream* stream, const stl_tri* tri)
{
    if (stream->tri_declared != 0 && stream->tri_done == stream->tri_declared) return 0;
    if (!put_header(stream)) return 0;
    const bool ascii = stream->format == stl_format_ascii;
    if (!(ascii ? put_ascii_triangle : put_binary_triangle)(stream, tri)) return 0;
    ++stream->tri_done;
    return 1;
}

static bool finish_ascii(stl_stream* s)
{
    if (!put_id_line(s, "endsolid ")) return false;
    static_cast<void>(stl_flush_buffer(s));
    std::fflush(s->handle);
    return true;
}

static bool patch_count(stl_stream* s)
{
    if (std::fseek(s->handle, k_count_offset, SEEK_SET) != 0) {
        s->error = stl_err_write;
        return false;
    }
    s->flags |= stl_flag_past_buffer;
    if (!stl_put_u32(s, s->tri_done)) return false;
    s->flags &= ~static_cast<std::uint32_t>(stl_flag_past_buffer);
    return true;
}

static bool finish_binary(stl_stream* s)
{
    static_cast<void>(stl_flush_buffer(s));
    std::fflush(s->handle);
    const bool can_seek = s->handle && s->handle != stdout;
    if (s->tri_declared == 0 && can_seek && !patch_count(s)) return false;
    s->tri_declared = s->tri_done;
    return true;
}

int stl_close(stl_stream* stream)
{
    if (!stream) return 1;
    if (stream->direction == stl_writing && stream->tri_done != 0) {
        const bool ascii = stream->format == stl_format_ascii;
        if (!(ascii ? finish_ascii : finish_binary)(stream)) return 0;
    }
    const int had_id = stream->id != nullptr;
    heap_free(stream->memory);
    heap_free(stream->id);
    heap_free(stream);
    return had_id;
}

} // namespace velmora
