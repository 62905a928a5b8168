#include "files/stl_stream.h"

#include "files/stl_bytes.h"
#include "mesh/memory.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

namespace velmora {

constexpr std::uint32_t k_first_progress_step = 54; ///< bytes

stl_stream* stl_open()
{
    auto* s = static_cast<stl_stream*>(mm_malloc(sizeof(stl_stream)));
    if (!s) return nullptr;
    s->flags = stl_flag_plain_attr;
    s->state = stl_state_one_read;
    s->unget_buf = s->unget_bytes;
    s->unget_capacity = k_stl_unget_size;
    s->progress_step = k_first_progress_step;
    return s;
}

// Every header text has room for a binary header, since the reader of one writes over the old text.
static int set_id(stl_stream* s, const char* text)
{
    char* copy = nullptr;
    if (text) {
        const std::size_t length = std::strlen(text);
        copy = static_cast<char*>(mm_malloc(std::max<std::size_t>(length, k_stl_header_size) + 1));
        if (!copy) {
            s->error = stl_err_no_memory;
            return 0;
        }
        std::memcpy(copy, text, length + 1);
    }
    heap_free(s->id);
    s->id = copy;
    return 1;
}

static int set_word(std::uint32_t* word, const void* value)
{
    if (!value) return 0;
    std::memcpy(word, value, sizeof *word);
    return 1;
}

static int set_direction(stl_stream* s, const void* value)
{
    if (!set_word(&s->direction, value)) return 0;
    s->access = s->direction == stl_reading ? stl_reading : stl_writing;
    return 1;
}

static void set_filter(stl_stream* s, const void* value)
{
    if (value) std::memcpy(s->filter_size, value, sizeof s->filter_size);
    s->filter = value ? s->filter_size : nullptr;
}

static void set_progress_hook(stl_stream* s, void* value)
{
    s->progress_hook = reinterpret_cast<stl_progress_hook>(value);
    if (value) s->progress_arg = s;
}

static void set_plain_attr(stl_stream* s, const void* value)
{
    if (value)
        s->flags |= stl_flag_plain_attr;
    else
        s->flags &= ~static_cast<std::uint32_t>(stl_flag_plain_attr);
}

int stl_set(stl_stream* stream, int property, void* value)
{
    switch (property) {
    case stl_prop_handle:
        stream->handle = static_cast<std::FILE*>(value);
        return 1;
    case stl_prop_id:
        return set_id(stream, static_cast<const char*>(value));
    case stl_prop_format:
        return set_word(&stream->format, value);
    case stl_prop_tri_declared:
        return set_word(&stream->tri_declared, value);
    case stl_prop_direction:
        return set_direction(stream, value);
    case stl_prop_plain_attr:
        set_plain_attr(stream, value);
        return 1;
    case stl_prop_filter:
        set_filter(stream, value);
        return 1;
    case stl_prop_bbox:
        stream->bbox = static_cast<float*>(value);
        return 1;
    case stl_prop_user_word:
        stream->user_word = value;
        return 1;
    case stl_prop_progress_hook:
        set_progress_hook(stream, value);
        return 1;
    case stl_prop_skip_hook:
        stream->skip_hook = reinterpret_cast<stl_skip_hook>(value);
        return 1;
    case stl_prop_keep_attr:
        return set_word(&stream->keep_attr, value);
    case stl_prop_attr_form:
        return set_word(&stream->attr_form, value);
    default:
        return 0;
    }
}

static int get_id(const stl_stream* s, char* out)
{
    const char* text = s->id ? s->id : "";
    std::size_t length = 0;
    while (length < k_stl_header_size && text[length] != '\0')
        ++length;
    std::memcpy(out, text, length);
    out[length] = '\0';
    return 1;
}

template <class value_t> static int get_value(void* out, value_t value)
{
    std::memcpy(out, &value, sizeof value); // NOLINT(bugprone-sizeof-expression): pointers too
    return 1;
}

int stl_get(const stl_stream* stream, int property, void* out)
{
    switch (property) {
    case stl_prop_handle:
        return get_value(out, stream->handle);
    case stl_prop_id:
        return get_id(stream, static_cast<char*>(out));
    case stl_prop_tri_declared:
        return get_value(out, stream->tri_declared);
    case stl_prop_tri_done:
        return get_value(out, stream->tri_done);
    case stl_prop_error:
        return get_value(out, stream->error);
    case stl_prop_sys_errno:
        return get_value(out, stream->sys_errno);
    case stl_prop_error_text:
        return get_value(out, stl_error_text(stream->error));
    case stl_prop_filtered:
        return get_value(out, stream->filtered);
    default:
        return 0;
    }
}

const char* stl_error_text(std::uint32_t code)
{
    static const char* const texts[] = {
        "success",
        "premature EOF (truncated file or ENDSOLID missing?)",
        "read error",
        "write error",
        "floating-point value is NaN",
        "illegal number",
        "illegal character",
        "illegal keyword",
        "illegal file format",
        "too few triangles",
        "no more memory",
    };
    return code < std::size(texts) ? texts[code] : "<unknown>";
}

const char* stl_error(const stl_stream* stream)
{
    return stream->error == stl_err_none ? nullptr : stl_error_text(stream->error);
}

static bool flush_all(stl_stream* s)
{
    if (!stl_flush_buffer(s)) return false;
    if (!s->handle || s->io_hook) return true;
    if (std::fflush(s->handle) == 0 && !std::ferror(s->handle)) return true;
    s->sys_errno = errno;
    return false;
}

int stl_flush(stl_stream* stream)
{
    if (flush_all(stream)) return 1;
    stream->error = stl_err_write;
    return 0;
}

} // namespace velmora
