// files/stl_bytes.h - the bytes beneath an STL stream: blocks, push-back, guard, little-endian
// numbers.
//
// A block is read when a byte is wanted and none is left, never sooner: whether the handle has seen
// its end is looked at after the run, so reading ahead would be noticed. Whoever takes bytes
// straight from the buffer has to ask stl_is_plain first, and must leave what a byte-wise reader
// would leave.
#pragma once

#include "files/stl_stream.h"

#include <cstddef>

namespace velmora {

/// Reads the next block; false when there is none. Only when all bytes of the last one are taken.
[[nodiscard]] bool stl_refill(stl_stream* s);

/// Reads the next block behind the bytes that are left of the last one. False, and all as it was,
/// when too many are left or there is no block; it is then not asked for again by the next refill,
/// which finds none either. For who has looked at all that is left and needs the byte behind it.
[[nodiscard]] bool stl_refill_behind(stl_stream* s);

/// Makes the progress call if one is due; false when the hook says stop.
[[nodiscard]] bool stl_report_progress(stl_stream* s);

/// Nothing is pushed back, no error is pending and nobody counts bytes: the buffer is all there is.
inline bool stl_is_plain(const stl_stream* s)
{
    return s->unget_count == 0 && s->error == stl_err_none && !s->progress_hook;
}

/// The next byte, or -1.
inline int stl_read_byte(stl_stream* s)
{
    if (s->unget_count > 0) return s->unget_buf[--s->unget_count];
    if (s->pos >= s->fill && !stl_refill(s)) return -1;
    const int byte = s->buffer[s->pos++];
    ++s->consumed;
    if (s->progress_hook && !stl_report_progress(s)) return -1;
    return byte;
}

/// The next byte, or -1. With an error pending the byte is lost and the error becomes a read error.
inline int stl_guarded_byte(stl_stream* s)
{
    const int byte = stl_read_byte(s);
    if (s->error == stl_err_none) return byte;
    s->flags |= stl_flag_refused;
    s->error = stl_err_read;
    return -1;
}

/// Puts one byte back. -1 is allowed, and comes back as 0xFF.
inline void stl_unread_byte(stl_stream* s, int byte)
{
    s->unget_buf[s->unget_count++] = static_cast<unsigned char>(byte);
}

/// Whether no byte is left, by trying to read one.
[[nodiscard]] bool stl_at_eof(stl_stream* s);

/// Sets the error for input that ended or failed inside a binary item; false when it did neither.
bool stl_set_cut_error(stl_stream* s);

// Binary numbers; false with an error set when the input ends, fails, or holds a NaN.
[[nodiscard]] bool stl_read_u16(stl_stream* s, std::uint32_t* value);
[[nodiscard]] bool stl_read_u32(stl_stream* s, std::uint32_t* value);
[[nodiscard]] bool stl_read_vec(stl_stream* s, float* vec);

/// Whether these are the bits of a NaN, of either sign and kind.
inline bool stl_is_nan_bits(std::uint32_t bits)
{
    return (bits & 0x7fffffffu) > 0x7f800000u;
}

inline std::uint32_t stl_decode_u32(const unsigned char* at)
{
    return static_cast<std::uint32_t>(at[0]) | static_cast<std::uint32_t>(at[1]) << 8 |
           static_cast<std::uint32_t>(at[2]) << 16 | static_cast<std::uint32_t>(at[3]) << 24;
}

inline void stl_encode_u32(unsigned char* at, std::uint32_t value)
{
    at[0] = static_cast<unsigned char>(value);
    at[1] = static_cast<unsigned char>(value >> 8);
    at[2] = static_cast<unsigned char>(value >> 16);
    at[3] = static_cast<unsigned char>(value >> 24);
}

/// Hands the buffered bytes to the handle. True when there are none.
[[nodiscard]] bool stl_flush_buffer(stl_stream* s);

/// Writes through the buffer; false with error 3 when a flush fails or the buffer cannot be had.
[[nodiscard]] bool stl_put_bytes(stl_stream* s, const void* bytes, std::size_t count);

/// Writes through the buffer, or straight to the handle with stl_flag_past_buffer.
[[nodiscard]] bool stl_put_u32(stl_stream* s, std::uint32_t value);

} // namespace velmora
