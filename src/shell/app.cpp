#include "shell/app.h"

#include "shell/command_line.h"
#include "shell/dialog.h"

#include <chrono>
#include <thread>

namespace velmora {

int exit_code = 0;

static constexpr std::chrono::milliseconds k_try_again{50};

CVelmoraApp::CVelmoraApp(dialog_window* window, const char* command_line, run_fn run)
    : window_(window), command_line_(command_line), run_(run)
{
}

CVelmoraApp::CVelmoraApp(dialog_window* window, int argc, char** argv, run_fn run)
    : window_(window), argc_(argc), argv_(argv), run_(run)
{
}

int CVelmoraApp::InitInstance()
{
    CVelmoraDlg dialog(window_);
    while (dialog.Create() == window_result::not_now)
        std::this_thread::sleep_for(k_try_again);
    exit_code = run_with_arguments();
    return exit_code;
}

int CVelmoraApp::run_with_arguments()
{
    static char name[] = "velmora";
    char** words = nullptr;
    if (!argv_) split_command_line(command_line_, &argc_, &words);
    char** const argv = argv_ ? argv_ : words;
    if (argc_ > 0) argv[0] = name;
    const int result = run_(argc_, argv);
    free_command_line(words);
    return result;
}

int CVelmoraApp::ExitInstance() const
{
    return exit_code;
}

} // namespace velmora
