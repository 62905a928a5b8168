#include "files/kvd_source.h"

#include "files/os_file.h"
#include "mesh/memory.h"

#include <algorithm>
#include <cstring>

namespace velmora {

static constexpr std::size_t k_block = std::size_t{256} * 1024;
static_assert(k_block >= k_kvd_longest_take);

bool kvd_source_open(std::FILE* file, kvd_source* source)
{
    *source = {};
    if (!file) return false;
    source->buffer = static_cast<unsigned char*>(heap_alloc(k_block));
    if (!source->buffer) {
        if (file != stdin) std::fclose(file);
        return false;
    }
    source->file = file;
    // The standard input may stand anywhere in its file.
    if (file != stdin) source->sized = is_regular_file(file, &source->left);
    return true;
}

void kvd_source_close(kvd_source* source)
{
    heap_free(source->buffer);
    if (source->file != stdin) {
        std::fclose(source->file);
    } else if (!source->ran_short) {
        std::clearerr(stdin);
    }
    *source = {};
}

// Bytes at hand, up to `size` where the file has them.
static std::size_t bring(kvd_source* s, std::size_t size)
{
    if (s->fill - s->pos >= size) return size;
    s->fill -= s->pos;
    std::memmove(s->buffer, s->buffer + s->pos, s->fill);
    s->pos = 0;
    s->fill += std::fread(s->buffer + s->fill, 1, k_block - s->fill, s->file);
    if (s->fill < size) s->ran_short = true;
    return std::min(s->fill, size);
}

static void pass(kvd_source* s, std::size_t size)
{
    s->pos += size;
    s->left -= std::min<std::uint64_t>(s->left, size);
}

const unsigned char* kvd_take(kvd_source* source, std::size_t size)
{
    if (bring(source, size) < size) return nullptr;
    const unsigned char* at = source->buffer + source->pos;
    pass(source, size);
    return at;
}

bool kvd_skip(kvd_source* source, std::uint64_t size)
{
    while (size != 0) {
        const auto part = static_cast<std::size_t>(std::min<std::uint64_t>(size, k_block));
        if (bring(source, part) < part) return false;
        pass(source, part);
        size -= part;
    }
    return true;
}

bool kvd_may_hold(const kvd_source& source, std::uint64_t size)
{
    return !source.sized || size <= source.left;
}

bool kvd_at_end(const kvd_source& source)
{
    return source.pos == source.fill && !std::ferror(source.file);
}

} // namespace velmora
