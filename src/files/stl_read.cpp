#include "files/stl_ascii.h"
#include "files/stl_bytes.h"
#include "files/stl_stream.h"
#include "mesh/memory.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace velmora {

constexpr std::uint32_t k_record_size = 50;     ///< bytes of a binary triangle
constexpr std::uint32_t k_record_floats = 12;   ///< in front of its attribute word
constexpr std::uint32_t k_progress_record = 54; ///< bytes per triangle between calls
constexpr std::uint32_t k_unknown_size_step = 1000 * k_progress_record; ///< nothing is announced

// Headers -----------------------------------------------------------------------------------------

// The text in the first block decides. A zero byte ends it, and so does the last byte of the block.
static std::uint32_t detect_format(stl_stream* s)
{
    if (s->fill == 0) return stl_format_binary;
    unsigned char* const last = s->buffer + s->fill - 1;
    const unsigned char saved = *last;
    *last = '\0';
    const char* const text = reinterpret_cast<const char*>(s->buffer);
    const bool solid = std::strstr(text, "solid") || std::strstr(text, "SOLID");
    const bool loop = std::strstr(text, "loop") || std::strstr(text, "LOOP");
    *last = saved;
    return solid && loop ? stl_format_ascii : stl_format_binary;
}

static bool have_id_memory(stl_stream* s)
{
    if (!s->id) s->id = static_cast<char*>(mm_malloc(k_stl_header_size + 1));
    if (!s->id) s->error = stl_err_no_memory;
    return s->id != nullptr;
}

static bool read_ascii_header(stl_stream* s)
{
    char name[k_stl_header_size + 1];
    if (!stl_read_solid_line(s, name) || !have_id_memory(s)) return false;
    std::memcpy(s->id, name, sizeof name);
    return true;
}

static bool read_header_text(stl_stream* s)
{
    for (std::uint32_t i = 0; i < k_stl_header_size; ++i) {
        const int byte = stl_guarded_byte(s);
        if (byte == -1) return false;
        s->id[i] = static_cast<char>(byte);
    }
    s->id[k_stl_header_size] = '\0';
    return true;
}

static bool read_binary_header(stl_stream* s)
{
    if (stl_at_eof(s) || !have_id_memory(s)) return false;
    if (read_header_text(s) && stl_read_u32(s, &s->tri_declared)) return true;
    s->error = stl_err_premature_end;
    return false;
}

static bool read_header(stl_stream* s)
{
    if (s->flags & stl_flag_header_read) return false;
    s->tri_done = 0;
    if (s->format == stl_format_unset) s->format = stl_format_detect;
    if (s->format == stl_format_detect) {
        if (stl_at_eof(s)) return false;
        s->format = detect_format(s);
    }
    if (s->format == stl_format_ascii && !read_ascii_header(s)) return false;
    if (s->format == stl_format_binary && !read_binary_header(s)) return false;
    if (s->file_size == 0) {
        const std::uint32_t percent = s->tri_declared / 100 * k_progress_record;
        s->progress_step = s->tri_declared != 0 ? percent : k_unknown_size_step;
    }
    s->flags |= stl_flag_header_read;
    return true;
}

// Binary records ----------------------------------------------------------------------------------

static bool read_record(stl_stream* s, stl_tri* tri, std::uint32_t* attr)
{
    return stl_read_vec(s, tri->normal) && stl_read_vec(s, tri->corner1) &&
           stl_read_vec(s, tri->corner2) && stl_read_vec(s, tri->corner3) && stl_read_u16(s, attr);
}

static std::uint32_t first_nan(const unsigned char* floats, std::uint32_t from, std::uint32_t to)
{
    while (from < to && !stl_is_nan_bits(stl_decode_u32(floats + std::size_t{4} * from)))
        ++from;
    return from;
}

// The next piece of a record, as much as the buffer has. Its whole numbers are looked at before
// another block is asked for, since a NaN ends the reading on the spot.
static bool take_piece(stl_stream* s, unsigned char* record, std::uint32_t* have)
{
    if (s->pos >= s->fill && !stl_refill(s)) {
        stl_set_cut_error(s);
        return false;
    }
    const std::uint32_t before = *have;
    const std::uint32_t size = std::min(s->fill - s->pos, k_record_size - before);
    std::memcpy(record + before, s->buffer + s->pos, size);
    *have = before + size;
    const std::uint32_t whole = std::min(*have / 4, k_record_floats);
    const std::uint32_t nan = first_nan(record, before / 4, whole);
    const std::uint32_t taken = nan < whole ? 4 * nan + 4 - before : size;
    s->pos += taken;
    s->consumed += taken;
    if (nan < whole) s->error = stl_err_nan;
    return nan == whole;
}

static void decode_vec(float* vec, const unsigned char* at)
{
    for (int i = 0; i < 3; ++i, at += 4)
        vec[i] = std::bit_cast<float>(stl_decode_u32(at));
}

// As read_record, from a plain buffer.
static bool take_record(stl_stream* s, stl_tri* tri, std::uint32_t* attr)
{
    unsigned char record[k_record_size];
    for (std::uint32_t have = 0; have < k_record_size;)
        if (!take_piece(s, record, &have)) return false;
    decode_vec(tri->normal, record);
    decode_vec(tri->corner1, record + 12);
    decode_vec(tri->corner2, record + 24);
    decode_vec(tri->corner3, record + 36);
    *attr = static_cast<std::uint32_t>(record[48]) | static_cast<std::uint32_t>(record[49]) << 8;
    return true;
}

static bool skip_bytes(stl_stream* s, std::uint32_t count)
{
    for (; count > 0; --count) {
        if (stl_guarded_byte(s) != -1) continue;
        s->error = stl_err_premature_end;
        return false;
    }
    return true;
}

static bool next_binary(stl_stream* s, stl_tri* tri, int* result)
{
    if (s->tri_declared != 0 && s->tri_done == s->tri_declared) {
        s->flags &= ~static_cast<std::uint32_t>(stl_flag_header_read);
        if (!read_header(s)) return false;
        *result = 2;
    }
    if (stl_at_eof(s)) {
        if (s->tri_declared != 0 && s->tri_done < s->tri_declared) s->error = stl_err_too_few;
        return false;
    }
    std::uint32_t attr = 0;
    if (!(stl_is_plain(s) ? take_record(s, tri, &attr) : read_record(s, tri, &attr))) return false;
    if (s->keep_attr) {
        tri->attr = attr;
        return true;
    }
    return (s->flags & stl_flag_plain_attr) || skip_bytes(s, attr);
}

// Text --------------------------------------------------------------------------------------------

// A further solid without a facet ends the reading, but not before it was counted: hence true.
static bool next_ascii(stl_stream* s, stl_tri* tri, int* result)
{
    if (stl_read_facet(s, tri)) return true;
    if (s->flags & stl_flag_header_read) return false;
    if (!read_header(s)) {
        if (s->error == stl_err_premature_end) s->error = stl_err_none;
        return false;
    }
    *result = stl_read_facet(s, tri) ? 2 : 0;
    return true;
}

// Extents -----------------------------------------------------------------------------------------

/// Extent on one axis.
struct axis_range {
    float min;
    float max; ///< too small when the first corner is the highest
};

static axis_range corner_range(float first, float second, float third)
{
    axis_range range = {second, third};
    if (second > first) range = {first, second};
    if (third < range.min) range.min = third;
    if (third > range.max) range.max = third;
    return range;
}

static void tri_extent(const stl_tri& tri, axis_range* axes)
{
    for (int i = 0; i < 3; ++i)
        axes[i] = corner_range(tri.corner1[i], tri.corner2[i], tri.corner3[i]);
}

static bool is_too_large(const axis_range* axes, const float* limits)
{
    for (int i = 0; i < 3; ++i)
        if (axes[i].max - axes[i].min > limits[i]) return true;
    return false;
}

static void grow_bbox(float* bbox, const axis_range* axes)
{
    for (std::size_t i = 0; i < 3; ++i) {
        if (axes[i].min < bbox[2 * i]) bbox[2 * i] = axes[i].min;
        if (axes[i].max > bbox[2 * i + 1]) bbox[2 * i + 1] = axes[i].max;
    }
}

int stl_get_triangle(stl_stream* stream, stl_tri* tri)
{
    int result = 1;
    if (!(stream->flags & stl_flag_header_read) && !read_header(stream)) return 0;
    for (;;) {
        const bool ascii = stream->format == stl_format_ascii;
        const bool known = ascii || stream->format == stl_format_binary;
        if (known && !(ascii ? next_ascii : next_binary)(stream, tri, &result)) return 0;
        ++stream->tri_done;
        if (!known || (!stream->filter && !stream->bbox)) return result;

        axis_range axes[3];
        tri_extent(*tri, axes);
        if (!stream->filter || !is_too_large(axes, stream->filter)) {
            if (stream->bbox) grow_bbox(stream->bbox, axes);
            return result;
        }
        ++stream->filtered;
        if (stream->skip_hook && !stream->skip_hook(stream, tri)) return 0;
    }
}

} // namespace velmora
