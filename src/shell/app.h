// shell/app.h - one run behind the progress dialog, from the command line to the exit value.
#pragma once

#include "shell/window.h"

namespace velmora {

/// What the run came to; 0 before there was one.
extern int exit_code;

// The application and its methods bear the names that such classes have on Windows.
// NOLINTBEGIN(readability-identifier-naming)

/// The application. It makes the dialog, then the arguments, then runs.
class CVelmoraApp {
  public:
    using run_fn = int (*)(int argc, char** argv);

    /// Takes the command line as one text, without the program's path.
    CVelmoraApp(dialog_window* window, const char* command_line, run_fn run);

    /// Takes words from a system that splits command lines itself. argv[0] is replaced.
    CVelmoraApp(dialog_window* window, int argc, char** argv, run_fn run);

    /// All of the run. When there can be no dialog the run goes on without.
    int InitInstance();

    /// The result for the system: that of the run.
    int ExitInstance() const;

  private:
    int run_with_arguments();

    dialog_window* window_;
    const char* command_line_ = nullptr;
    int argc_ = 0;
    char** argv_ = nullptr;
    run_fn run_;
};

// NOLINTEND(readability-identifier-naming)

} // namespace velmora
