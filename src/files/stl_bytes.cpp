#include "files/stl_bytes.h"

#include "files/stl_ascii_plain.h"
#include "mesh/memory.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <sys/types.h>

namespace velmora {

constexpr std::uint32_t k_block_size = 512; ///< bytes per read or write call
constexpr std::uint32_t k_carry_size = 256; ///< room in front of a block for the end of the last
constexpr unsigned char k_end_mark = 0x1a;  ///< stands behind the last byte, see stl_plain_text

// 0 for what has no size: a pipe, a terminal, the standard input even when it is a file.
static std::uint32_t size_of_file(std::FILE* handle)
{
    if (handle == stdin) return 0;
#ifdef _WIN32
    struct _stat64 status;
    if (_fstat64(_fileno(handle), &status) != 0) return 0;
#else
    struct stat status;
    if (fstat(fileno(handle), &status) != 0) return 0;
#endif
    if (status.st_size <= 0) return 0;
    return static_cast<std::uint32_t>(
        std::min(static_cast<std::uint64_t>(status.st_size), std::uint64_t{0xffffffffu}));
}

static bool set_up_buffer(stl_stream* s)
{
    s->state &= ~static_cast<std::uint32_t>(stl_state_spare);
    if (s->handle) s->file_size = size_of_file(s->handle);
    if (s->progress_step == 0) s->progress_step = s->file_size / 100;
    const bool small = s->file_size != 0 && s->file_size < k_block_size;
    const std::uint32_t size = small ? s->file_size : k_block_size;
    s->memory = static_cast<unsigned char*>(mm_malloc(k_carry_size + size + k_plain_slack));
    if (!s->memory) return false;
    s->buffer = s->memory + k_carry_size;
    s->buffer_size = size;
    return true;
}

static void note_read_failure(stl_stream* s, std::int32_t reason)
{
    s->state |= stl_state_failed;
    s->sys_errno = reason;
}

// A short block without the end in sight is as good as a full one when one read is a refill.
static std::uint32_t read_block(stl_stream* s)
{
    std::uint32_t got = 0;
    while (got < s->buffer_size) {
        const std::size_t n = std::fread(s->buffer + got, 1, s->buffer_size - got, s->handle);
        got += static_cast<std::uint32_t>(n);
        if (n > 0 && (s->state & stl_state_one_read)) break;
        if (n > 0) continue;
        if (std::ferror(s->handle) && !std::feof(s->handle)) {
            note_read_failure(s, errno);
            return 0;
        }
        s->state |= stl_state_end;
        break;
    }
    return got;
}

static void get_block(stl_stream* s)
{
    if (s->io_hook)
        s->fill = std::min(s->io_hook(s), s->buffer_size);
    else if (s->handle)
        s->fill = read_block(s);
    else
        note_read_failure(s, EBADF);
}

bool stl_refill(stl_stream* s)
{
    s->pos = 0;
    s->fill = 0;
    if (!s->buffer && !set_up_buffer(s)) {
        note_read_failure(s, ENOMEM);
        return false;
    }
    s->buffer = s->memory + k_carry_size;
    const bool known_empty = (s->state & stl_state_no_more) != 0;
    s->state &= ~static_cast<std::uint32_t>(stl_state_no_more);
    if (!known_empty) get_block(s);
    s->buffer[s->fill] = k_end_mark;
    return s->fill > 0;
}

bool stl_refill_behind(stl_stream* s)
{
    const std::uint32_t left = s->fill - s->pos;
    if (left > k_carry_size || (s->state & stl_state_no_more)) return false;
    unsigned char* const carried = s->memory + k_carry_size - left;
    std::memmove(carried, s->buffer + s->pos, left);
    const bool more = stl_refill(s);
    s->buffer = carried;
    s->fill += left;
    if (!more) s->state |= stl_state_no_more;
    return more;
}

bool stl_report_progress(stl_stream* s)
{
    if (s->progress_step == 0) return true;
    if (s->progress_step > 1) {
        if (s->consumed < s->progress_next) return true;
        s->progress_next += s->progress_step;
        if (s->file_size != 0) s->progress_next = std::min(s->progress_next, s->file_size);
    }
    return s->progress_hook(s->progress_arg) != 0;
}

bool stl_at_eof(stl_stream* s)
{
    if (stl_is_plain(s)) return s->pos >= s->fill && !stl_refill(s);
    const int byte = stl_guarded_byte(s);
    if (byte == -1) return true;
    stl_unread_byte(s, byte);
    return false;
}

bool stl_set_cut_error(stl_stream* s)
{
    if (s->state & stl_state_end) s->error = stl_err_premature_end;
    if (s->state & stl_state_failed) s->error = stl_err_read;
    return (s->state & (stl_state_end | stl_state_failed)) != 0;
}

bool stl_read_u16(stl_stream* s, std::uint32_t* value)
{
    const auto low = static_cast<unsigned char>(stl_guarded_byte(s));
    const auto high = static_cast<unsigned char>(stl_guarded_byte(s));
    *value = static_cast<std::uint32_t>(low) | static_cast<std::uint32_t>(high) << 8;
    return !stl_set_cut_error(s);
}

bool stl_read_u32(stl_stream* s, std::uint32_t* value)
{
    std::uint32_t low = 0;
    std::uint32_t high = 0;
    if (!stl_read_u16(s, &low) || !stl_read_u16(s, &high)) return false;
    *value = low | high << 16;
    return true;
}

bool stl_read_vec(stl_stream* s, float* vec)
{
    for (int i = 0; i < 3; ++i) {
        std::uint32_t bits = 0;
        if (!stl_read_u32(s, &bits)) return false;
        if (stl_is_nan_bits(bits)) {
            s->error = stl_err_nan;
            return false;
        }
        vec[i] = std::bit_cast<float>(bits);
    }
    return true;
}

bool stl_flush_buffer(stl_stream* s)
{
    if (s->pos == 0) return true;
    if (s->io_hook) {
        if (!s->io_hook(s)) return false;
        s->pos = 0;
        return true;
    }
    if (std::ferror(s->handle)) return false;
    std::fwrite(s->buffer, 1, s->pos, s->handle);
    if (std::ferror(s->handle)) {
        s->sys_errno = errno;
        return false;
    }
    s->pos = 0;
    return true;
}

static bool make_room(stl_stream* s)
{
    if (s->buffer) return stl_flush_buffer(s);
    if ((!s->handle && !s->io_hook) || !set_up_buffer(s)) return false;
    s->fill = s->buffer_size;
    return true;
}

bool stl_put_bytes(stl_stream* s, const void* bytes, std::size_t count)
{
    const auto* from = static_cast<const unsigned char*>(bytes);
    while (count > 0) {
        if (s->pos >= s->fill && !make_room(s)) {
            s->error = stl_err_write;
            return false;
        }
        const std::size_t part = std::min<std::size_t>(count, s->fill - s->pos);
        std::memcpy(s->buffer + s->pos, from, part);
        s->pos += static_cast<std::uint32_t>(part);
        from += part;
        count -= part;
    }
    return true;
}

bool stl_put_u32(stl_stream* s, std::uint32_t value)
{
    unsigned char bytes[4];
    stl_encode_u32(bytes, value);
    if (!(s->flags & stl_flag_past_buffer)) return stl_put_bytes(s, bytes, sizeof bytes);
    for (const unsigned char byte : bytes) {
        if (std::fputc(byte, s->handle) != EOF) continue;
        s->error = stl_err_write;
        return false;
    }
    return true;
}

} // namespace velmora
