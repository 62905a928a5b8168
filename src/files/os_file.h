// files/os_file.h - the few things about files that the C library leaves to each system.
//
// Names are UTF-8. What fails leaves its reason in errno.
#pragma once

#include <cstdint>
#include <cstdio>

namespace velmora {

/// std::fopen for a binary `mode`: "rb", "wb" or "a+b". While it is open the file can be opened a
/// second time, and renamed.
std::FILE* os_open(const char* name, const char* mode);

/// A second handle for reading what `handle` reads, from the place where the file stands; the
/// caller closes it. Nothing is opened: for the name of a pipe that could wait for another writer
/// for ever.
std::FILE* os_second_handle(std::FILE* handle);

/// Gives a file, open or not, another name; a file that has the name already is replaced.
bool os_rename(const char* from, const char* to);

/// Whether `name` leads, by any road (links too), to the file behind `handle`, so that emptying
/// the one empties the other. False for terminals, pipes and other things without content of
/// their own, for a name that leads nowhere, and for a null handle.
bool is_same_file(const char* name, std::FILE* handle);

/// Whether `handle` is a plain file, of a known size and read without waiting.
/// @param[out] size  in bytes, set when the answer is yes; may be null
bool is_regular_file(std::FILE* handle, std::uint64_t* size = nullptr);

} // namespace velmora
