// shell/progress_line.h - one line of text that shows how far a run has come.
//
//     Reducing STL model  [###########.................]  40 %
//
// The line shrinks with the room: first the bar, then the status, then all but the percentage.
#pragma once

#include <cstddef>

namespace velmora {

/// Room for the widest line and its end.
constexpr std::size_t k_progress_line_size = 128;

/// Writes the line for `percent` (0 to 100; beyond that it stands at the end of the bar) into
/// `out`, at most `columns` characters and a zero. Empty when not even the percentage fits. Calls
/// nothing that a signal handler must not call.
/// @return the number of characters
std::size_t format_progress_line(char (&out)[k_progress_line_size], const char* status, int percent,
                                 int columns);

} // namespace velmora
