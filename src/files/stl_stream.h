// files/stl_stream.h - one object that reads and writes STL, text or binary, a triangle at a time.
//
// A stream borrows an open file handle: it never opens, closes or rewinds one, and reading works on
// a pipe. It knows nothing of meshes. The memory it needs does not depend on the file: one block of
// 512 bytes, which is read and written in whole, and a header text. Results are 1 for done and 0
// for not done; after a 0 the reason stands in `error`, and nothing is printed. Numbers in a binary
// file are little-endian. Streams share no state, but each belongs to one thread.
#pragma once

#include <cstdint>
#include <cstdio>

namespace velmora {

struct stl_stream;

/// One facet as the file has it.
struct stl_tri {
    float normal[3];    ///< as stored; not checked against the corners
    float corner1[3];   ///< corners in file order
    float corner2[3];   ///< second
    float corner3[3];   ///< third
    std::uint32_t attr; ///< attribute word in the low 16 bits; untouched without keep_attr
};

/// stl_stream::format and property 3.
enum stl_format : std::uint32_t {
    stl_format_unset = 0,  ///< a reader detects, a writer takes binary
    stl_format_ascii = 1,  ///< text
    stl_format_binary = 2, ///< 80 byte header, count, records of 50 bytes
    stl_format_detect = 3, ///< look at the first block
};

/// stl_stream::direction, stl_stream::access and property 5.
enum stl_direction : std::uint32_t {
    stl_reading = 1,
    stl_writing = 2,
};

/// stl_stream::error and property 7. stl_error_text has the words.
enum stl_error_code : std::uint32_t {
    stl_err_none = 0,
    stl_err_premature_end = 1,
    stl_err_read = 2,
    stl_err_write = 3,
    stl_err_nan = 4,
    stl_err_number = 5,
    stl_err_character = 6,
    stl_err_keyword = 7,
    stl_err_format = 8, ///< has a text, nothing sets it
    stl_err_too_few = 9,
    stl_err_no_memory = 10,
};

/// stl_stream::state.
enum stl_state_bit : std::uint32_t {
    stl_state_end = 1,      ///< end of file seen
    stl_state_failed = 2,   ///< a read failed; sys_errno has the reason
    stl_state_one_read = 4, ///< one successful read call is a refill; set at creation
    stl_state_spare = 8,    ///< cleared when the buffer is set up
    stl_state_no_more = 16, ///< the next block was asked for ahead of its turn, and there is none
};

/// stl_stream::flags.
enum stl_flag : std::uint32_t {
    stl_flag_header_written = 1,
    stl_flag_header_read = 2,
    stl_flag_line_end = 4,      ///< the last character read ended a line
    stl_flag_refused = 16,      ///< a byte was refused because an error was pending
    stl_flag_endsolid = 32,     ///< the text solid was closed
    stl_flag_plain_attr = 64,   ///< the attribute word is no byte count; set at creation
    stl_flag_past_buffer = 128, ///< numbers go straight to the handle
};

/// Numbers for stl_set and stl_get. What they take and give is told there.
enum stl_property : int {
    stl_prop_handle = 1,
    stl_prop_id = 2,
    stl_prop_format = 3,
    stl_prop_tri_declared = 4,
    stl_prop_direction = 5,
    stl_prop_tri_done = 6,
    stl_prop_error = 7,
    stl_prop_sys_errno = 8,
    stl_prop_error_text = 9,
    stl_prop_plain_attr = 10,
    stl_prop_filter = 11,
    stl_prop_filtered = 12,
    stl_prop_bbox = 13,
    stl_prop_user_word = 15,
    stl_prop_progress_hook = 16,
    stl_prop_skip_hook = 17,
    stl_prop_keep_attr = 18,
    stl_prop_attr_form = 19,
};

/// Stands in for refill and flush. Reading: fills `buffer` and returns the number of bytes, or 0
/// and the reason as a bit of `state`. Writing: takes `pos` bytes from `buffer`, returns non-zero
/// when they are safe.
using stl_io_hook = std::uint32_t (*)(stl_stream* stream);

/// Called every progress_step bytes; 0 makes the byte at hand read as end of input.
using stl_progress_hook = int (*)(void* progress_arg);

/// Called with each triangle that the size filter drops; 0 ends the read call with 0.
using stl_skip_hook = int (*)(stl_stream* stream, const stl_tri* tri);

constexpr std::uint32_t k_stl_header_size = 80; ///< bytes of header text in a binary file
constexpr std::uint32_t k_stl_unget_size = 2;   ///< bytes; the reader pushes back one at most

struct stl_stream {
    // A buffered byte stream.
    std::FILE* handle;               ///< borrowed
    std::int32_t sys_errno;          ///< errno of the failed read or write
    std::uint32_t access;            ///< stl_direction
    std::uint32_t file_size;         ///< bytes; 0 unknown, as for the standard input
    std::uint32_t consumed;          ///< bytes taken from the buffer so far
    unsigned char* memory;           ///< owned; null until the first byte
    unsigned char* buffer;           ///< bytes at hand, in `memory`; null until the first byte
    unsigned char* unget_buf;        ///< push-back store, last in first out
    std::uint32_t buffer_size;       ///< bytes at `buffer`
    std::uint32_t unget_capacity;    ///< k_stl_unget_size
    std::uint32_t fill;              ///< reading: valid bytes; writing: capacity
    std::uint32_t unget_count;       ///< bytes waiting in unget_buf
    std::uint32_t pos;               ///< next byte in buffer
    std::uint32_t progress_step;     ///< bytes between progress calls; 0 none
    std::uint32_t progress_next;     ///< `consumed` at which the next call falls
    stl_io_hook io_hook;             ///< null: the handle is read and written
    stl_progress_hook progress_hook; ///< null: no calls
    void* progress_arg;              ///< what the hook is given: the stream
    std::uint32_t state;             ///< stl_state_bit
    unsigned char unget_bytes[k_stl_unget_size];

    // What makes it STL.
    std::uint32_t error;        ///< stl_error_code
    std::uint32_t format;       ///< stl_format
    std::uint32_t direction;    ///< stl_direction
    std::uint32_t tri_done;     ///< triangles read or written in this solid
    std::uint32_t tri_declared; ///< triangles announced; 0 unknown
    char* id;                   ///< header text, owned, room for a binary header; null none
    std::uint32_t flags;        ///< stl_flag
    std::uint32_t count_pos;    ///< where a written count stands
    stl_skip_hook skip_hook;    ///< null: none
    void* user_word;            ///< the caller's; held only
    float filter_size[3];       ///< largest extents in x, y, z that pass the filter
    float* filter;              ///< filter_size, or null: the filter is off
    std::uint32_t filtered;     ///< triangles that the filter dropped
    std::uint32_t keep_attr;    ///< non-zero: attribute words are read and written
    std::uint32_t attr_form;    ///< how a loader reads colour out of an attribute word
    float* bbox;                ///< borrowed: xmin xmax ymin ymax zmin zmax, grown; null none
};

/// A fresh stream without a handle, or null when memory ran out. stl_close frees it.
[[nodiscard]] stl_stream* stl_open();

/// Sets a property; 0 for a number without a set form, and for a missing value. By value:
/// handle (FILE*), bbox (float*), user_word, progress_hook, skip_hook (null: off), plain_attr (null
/// clears, else sets). By pointer to std::uint32_t: format, tri_declared, direction, keep_attr,
/// attr_form. filter: pointer to three floats, or null to switch it off. id: a text, copied; null
/// forgets it; when memory runs out 0, error 10, and the old text stays.
int stl_set(stl_stream* stream, int property, void* value);

/// Gets a property into `out`; 0 for a number without a get form. handle: FILE*. id: up to 80
/// characters and a zero byte. tri_declared, tri_done, error, filtered: std::uint32_t. sys_errno:
/// std::int32_t. error_text: const char*.
int stl_get(const stl_stream* stream, int property, void* out);

/// The text of the stream's error, or null when there is none.
const char* stl_error(const stl_stream* stream);

/// The text of any code; "<unknown>" beyond the last one. Never null.
const char* stl_error_text(std::uint32_t code);

/// Reads the next triangle. 1: here it is. 2: here it is, and it is the first of a further solid.
/// 0: no triangle, `tri` holds rubbish; either the data ended cleanly (error 0) or reading failed.
/// Reading on after a failure stays a failure.
[[nodiscard]] int stl_get_triangle(stl_stream* stream, stl_tri* tri);

/// Writes a triangle, and the header in front of the first one. 0 when writing failed (error 3), or
/// without an error when tri_declared triangles have been written.
[[nodiscard]] int stl_put_triangle(stl_stream* stream, const stl_tri* tri);

/// Hands all buffered bytes to the handle and flushes that; 0 and error 3 when either fails.
/// Without it a full disk can stay unnoticed, since stl_close does not look.
[[nodiscard]] int stl_flush(stl_stream* stream);

/// Finishes a written file (end line or count) and frees the stream; the handle stays open. 1 when
/// the stream had a header text or is null, 0 when it had none. Also 0 when the finish fails: then
/// the stream is still there, with its error.
int stl_close(stl_stream* stream);

} // namespace velmora
