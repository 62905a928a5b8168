// shell/help.h - what a lone `--help` or `--version` is answered with.
//
// Only where it is the one and only argument: in any other place these words are options like the
// rest, "-" among them, and are taken letter by letter. No run starts, and no window is opened.
#pragma once

namespace velmora {

/// The page that describes the program, or its name and version, where this command line asks for
/// one of them; null where it asks for a run.
const char* asked_text(int argc, const char* const* argv);

/// Writes `text` to the standard output.
/// @return the exit status of the process: 0, or 255 when it could not be written
int print_asked_text(const char* text);

} // namespace velmora
