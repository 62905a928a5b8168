// run/log.h - the one road to the log, which is the standard error stream.
//
// A shell may keep a line of its own on the same screen. Each call therefore has it taken away
// first and put back afterwards; the shell needs to know nothing of what is logged.
#pragma once

namespace velmora {

#if defined(__GNUC__)
#define VELMORA_PRINTF_LIKE __attribute__((format(printf, 1, 2)))
#else
#define VELMORA_PRINTF_LIKE
#endif

/// Prints to the log in the manner of printf. `format` brings its line feeds, and ends with one.
void log_line(const char* format, ...) VELMORA_PRINTF_LIKE;

/// Sees to it that all that was logged has left the process.
void log_flush();

} // namespace velmora
