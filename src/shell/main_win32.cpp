// The program for Windows: the run behind the progress window.
#include "mesh/memory.h"
#include "run/driver.h"
#include "shell/app.h"
#include "shell/command_line.h"
#include "shell/help.h"
#include "shell/window_win32.h"

#define WIN32_LEAN_AND_MEAN
#include <cstdio>
#include <fcntl.h>
#include <initializer_list>
#include <io.h>
#include <windows.h>

namespace velmora {

// A program with windows has no console of its own: one that was started from a prompt borrows the
// prompt's for a stream that leads nowhere.
static bool borrow_console(std::FILE* stream)
{
    if (_get_osfhandle(_fileno(stream)) >= 0) return true;
    return AttachConsole(ATTACH_PARENT_PROCESS) && std::freopen("CONOUT$", "w", stream);
}

// Models go through the standard streams too, and the log is the same on every system.
static void set_up_streams()
{
    borrow_console(stderr);
    for (std::FILE* stream : {stdin, stdout, stderr}) {
        if (_fileno(stream) >= 0) _setmode(_fileno(stream), _O_BINARY);
    }
    std::setvbuf(stderr, nullptr, _IOFBF, BUFSIZ); // the shell flushes after each line
}

// Behind the program's path, which stands in quotes when there are blanks in it.
static const wchar_t* skip_program(const wchar_t* line)
{
    bool quoted = false;
    for (; *line != L'\0' && (quoted || *line != L' '); ++line) {
        if (*line == L'"') quoted = !quoted;
    }
    return line;
}

// Null when memory ran out; the process keeps it.
static const char* utf8_of(const wchar_t* text)
{
    const int size = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    char* utf8 = static_cast<char*>(heap_alloc(static_cast<std::size_t>(size)));
    if (utf8) WideCharToMultiByte(CP_UTF8, 0, text, -1, utf8, size, nullptr, nullptr);
    return utf8;
}

// Started by a click, without a prompt, the text comes in a box.
static int show_asked_text(const char* text)
{
    if (borrow_console(stdout)) return print_asked_text(text);
    win32_window().message_box(text);
    return 0;
}

} // namespace velmora

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR, int)
{
    using namespace velmora;
    const char* line = utf8_of(skip_program(GetCommandLineW()));
    int argc = 0;
    char** argv = nullptr;
    split_command_line(line, &argc, &argv);
    const char* text = asked_text(argc, argv);
    free_command_line(argv);
    if (text) return show_asked_text(text);

    set_up_streams();
    win32_window window;
    CVelmoraApp app(&window, line, velmora_main);
    app.InitInstance();
    return app.ExitInstance();
}
