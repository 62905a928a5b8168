// run/same_file.h - which file stands behind a name or a handle, whatever it is called.
#pragma once

#include <cstdio>

namespace velmora {

/// Whether `name` leads, by any road (links too), to the file behind `handle`, so that emptying
/// the one empties the other. False for terminals, pipes and other things without content of
/// their own, for a name that leads nowhere, and for a null handle.
bool is_same_file(const char* name, std::FILE* handle);

/// Whether `handle` is a plain file, of a known size and read without waiting.
bool is_regular_file(std::FILE* handle);

} // namespace velmora
