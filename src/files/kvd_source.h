// files/kvd_source.h - the bytes of a file from front to back, taken in pieces of known length.
//
// Reads ahead in large blocks, yet never seems to: the standard input's end-of-file mark is left
// set only when somebody asked for more than there was.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace velmora {

/// A file that is being read.
struct kvd_source {
    std::FILE* file;
    unsigned char* buffer; ///< owned
    std::size_t pos;       ///< first byte in `buffer` that has not been taken
    std::size_t fill;      ///< end of the bytes in `buffer`
    std::uint64_t left;    ///< bytes not yet taken, where `sized`
    bool sized;            ///< a regular file, whose size can be relied on
    bool ran_short;        ///< somebody asked for more than there was
};

/// Takes `file`, which is closed in the end unless it is the standard input. False when it is null
/// or memory ran out: it is then closed, and nothing is held.
[[nodiscard]] bool kvd_source_open(std::FILE* file, kvd_source* source);

/// Gives all back; the standard input stays open.
void kvd_source_close(kvd_source* source);

/// The next `size` bytes, at most k_kvd_longest_take; they stand until the next call. Null, and
/// nothing is taken, when there are not so many.
constexpr std::size_t k_kvd_longest_take = 4096;
[[nodiscard]] const unsigned char* kvd_take(kvd_source* source, std::size_t size);

/// Passes `size` bytes over; false when there are not so many.
[[nodiscard]] bool kvd_skip(kvd_source* source, std::uint64_t size);

/// Whether `size` more bytes may come: known of a regular file, granted to any other.
bool kvd_may_hold(const kvd_source& source, std::uint64_t size);

/// After a failed kvd_take: not one byte was left, and no read failed.
bool kvd_at_end(const kvd_source& source);

} // namespace velmora
