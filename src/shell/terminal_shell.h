// shell/terminal_shell.h - the shell of a run that was started from a command prompt.
//
// When standard error is a terminal there is one progress line at the bottom of the log. It is
// drawn when something in it changes, gives way to each line of the log, and is gone at the end.
// When standard error is anything else, nothing but the log is ever written.
//
// SIGINT and SIGTERM are the Stop button: the run learns of it at its next progress call. A second
// one ends the process at once. A signal that the parent chose to ignore stays ignored.
//
//     column 0 of the line: the cursor rests here, so that a terminal which rewraps its text when
//     it gets narrower leaves the whole of the line below and right of the cursor, to be erased.
#pragma once

namespace velmora {

/// Installs the shell and its signal handlers. One shell at a time.
void terminal_shell_start();

/// Takes the line from the screen and gives back what terminal_shell_start changed.
void terminal_shell_end();

/// Fills each standard stream that the parent has closed with a file that is open the wrong way
/// round. Its number would go to the next file that is opened, and the log into the model; now
/// using the stream fails, as it did. To be called before anything is opened.
/// Writing to a pipe that nobody reads any more fails from now on like any other write, so that the
/// run can tell of it; and a log that nobody reads ends no run.
void hold_standard_streams();

/// A whole run behind this shell, with the standard streams held.
/// @return the exit status of the process
int run_in_terminal(int argc, char** argv);

} // namespace velmora
