// mesh/log.h - the one road to the log, which is the standard error stream.
//
// Whoever shows the run may keep a line of its own on the same screen. That line is taken away
// before anything is logged and put back afterwards, so every room logs here and nowhere else.
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

/// Has `before` and `after` called round everything that is logged from now on; null for neither.
void log_surround(void (*before)(), void (*after)());

} // namespace velmora
