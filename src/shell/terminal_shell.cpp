#include "shell/terminal_shell.h"

#include "mesh/log.h"
#include "run/driver.h"
#include "run/ui.h"
#include "shell/progress_line.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <sys/ioctl.h>
#include <unistd.h>

namespace velmora {

namespace {

constexpr int k_default_columns = 80;
constexpr char k_erase_line[] = "\r\033[J"; ///< from the line's start to the end of the screen

/// What the line shows. Changed with our signals held, so a handler finds it whole.
struct line_state {
    bool usable; ///< there is a terminal that can erase
    bool shown;  ///< between show and hide
    bool yields; ///< the log is being written
    bool drawn;  ///< on the screen now
    int percent;
    char status[k_progress_line_size];
};

line_state line;

volatile std::sig_atomic_t stop_wanted = 0;

/// A signal that the shell answers, and who answered it before.
struct taken_signal {
    int number;
    void (*handler)(int);
    bool only_with_line; ///< of no interest unless there is a line
    bool taken;
    struct sigaction before;
};

} // namespace

static void write_screen(const char* text, std::size_t size)
{
    while (size > 0) {
        const ssize_t done = write(STDERR_FILENO, text, size);
        if (done < 0 && errno != EINTR) return;
        if (done < 0) continue;
        text += done;
        size -= static_cast<std::size_t>(done);
    }
}

static int screen_columns()
{
    winsize size = {};
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return k_default_columns;
    return size.ws_col;
}

// A job in the background leaves the screen to others. A terminal that does not say who is in
// front is taken as ours alone.
static bool in_front()
{
    const pid_t front = tcgetpgrp(STDERR_FILENO);
    return front == -1 || front == getpgrp();
}

static void erase_line()
{
    if (!line.drawn) return;
    line.drawn = false;
    write_screen(k_erase_line, sizeof k_erase_line - 1);
}

// The last column stays free: a character there makes some terminals go on to the next line.
static void draw_line()
{
    if (!line.usable || !line.shown || line.yields || !in_front()) return;
    char text[k_progress_line_size];
    const std::size_t size =
        format_progress_line(text, line.status, line.percent, screen_columns() - 1);
    write_screen("\r", 1);
    write_screen(text, size);
    write_screen("\033[K\r", 4);
    line.drawn = true;
}

// Ends the process by the signal itself, so that the parent sees what ended it. The signal is held
// while its handler runs and comes through when that returns.
static void end_by(int number)
{
    erase_line();
    std::signal(number, SIG_DFL);
    std::raise(number);
}

static void on_stop(int number)
{
    const int error = errno;
    if (stop_wanted) {
        end_by(number);
    } else {
        stop_wanted = 1;
        if (line.drawn) draw_line(); // over the ^C that the terminal has put there
    }
    errno = error;
}

static void on_continue(int)
{
    const int error = errno;
    draw_line();
    errno = error;
}

static void on_resize(int)
{
    const int error = errno;
    if (line.drawn) {
        erase_line();
        draw_line();
    }
    errno = error;
}

// Stops the process as if nobody had taken the signal, with the screen tidied before.
static void on_suspend(int number)
{
    const int error = errno;
    erase_line();

    struct sigaction ours;
    struct sigaction usual = {};
    usual.sa_handler = SIG_DFL;
    sigaction(number, &usual, &ours);
    sigset_t only_this;
    sigset_t held;
    sigemptyset(&only_this);
    sigaddset(&only_this, number);
    std::raise(number);
    sigprocmask(SIG_UNBLOCK, &only_this, &held); // stops here, and goes on here
    sigprocmask(SIG_SETMASK, &held, nullptr);
    sigaction(number, &ours, nullptr);

    draw_line();
    errno = error;
}

static taken_signal signals[] = {
    {SIGINT, on_stop, false, false, {}},    {SIGTERM, on_stop, false, false, {}},
    {SIGTSTP, on_suspend, true, false, {}}, {SIGCONT, on_continue, true, false, {}},
    {SIGWINCH, on_resize, true, false, {}},
};

static sigset_t our_signals()
{
    sigset_t set;
    sigemptyset(&set);
    for (const taken_signal& s : signals)
        sigaddset(&set, s.number);
    return set;
}

// Handlers wait for each other, since they share the line.
static void take_signal(taken_signal* s)
{
    s->taken = false;
    if (s->only_with_line && !line.usable) return;
    if (sigaction(s->number, nullptr, &s->before) != 0) return;
    if (s->before.sa_handler == SIG_IGN) return;
    struct sigaction action = {};
    action.sa_handler = s->handler;
    action.sa_mask = our_signals();
    action.sa_flags = SA_RESTART;
    s->taken = sigaction(s->number, &action, nullptr) == 0;
}

static void give_back_signal(taken_signal* s)
{
    if (s->taken) sigaction(s->number, &s->before, nullptr);
    s->taken = false;
}

/// Makes `change` while no handler can look on.
template <class change_fn> static void with_signals_held(const change_fn& change)
{
    const sigset_t held = our_signals();
    sigset_t before;
    sigprocmask(SIG_BLOCK, &held, &before);
    change();
    sigprocmask(SIG_SETMASK, &before, nullptr);
}

static void set_percent(int percent)
{
    with_signals_held([percent] {
        if (line.percent == percent) return;
        line.percent = percent;
        draw_line();
    });
}

static void set_status(int, const char* text)
{
    with_signals_held([text] {
        if (std::strncmp(line.status, text, sizeof line.status - 1) == 0) return;
        std::snprintf(line.status, sizeof line.status, "%s", text);
        draw_line();
    });
}

static void give_way()
{
    with_signals_held([] {
        erase_line();
        line.yields = true;
    });
}

static void come_back()
{
    with_signals_held([] {
        line.yields = false;
        draw_line();
    });
}

static void show_line()
{
    with_signals_held([] {
        line.shown = true;
        draw_line();
    });
}

static void hide_line()
{
    with_signals_held([] {
        erase_line();
        line.shown = false;
    });
}

// A box that nobody could see or answer stays away.
static void show_message(const char* text)
{
    if (line.usable) log_line("%s\n", text);
}

static const ui_ops terminal_ops = {
    [](const char*) {}, // prepare: a terminal's title and keys are not ours
    [] { set_percent(0); },
    set_status,
    show_line,
    hide_line,
    set_percent,
    [] { return stop_wanted ? 0 : 1; },
    show_message,
    give_way,
    come_back,
};

static bool terminal_can_erase()
{
    if (!isatty(STDERR_FILENO)) return false;
    const char* kind = std::getenv("TERM");
    return kind && *kind != '\0' && std::strcmp(kind, "dumb") != 0;
}

void terminal_shell_start()
{
    line = {};
    line.usable = terminal_can_erase();
    stop_wanted = 0;
    for (taken_signal& s : signals)
        take_signal(&s);
    ui_install(&terminal_ops);
}

void terminal_shell_end()
{
    hide_line();
    ui_install(nullptr);
    for (taken_signal& s : signals)
        give_back_signal(&s);
}

void hold_standard_streams()
{
    std::signal(SIGPIPE, SIG_IGN);
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (fcntl(fd, F_GETFD) != -1) continue;
        if (open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY) == -1) return;
    }
}

int run_in_terminal(int argc, char** argv)
{
    hold_standard_streams();

    // The run speaks under its own name, by whatever path it was started.
    static char name[] = "velmora";
    char* lone_name[] = {name, nullptr};
    if (argc < 1) {
        argc = 1;
        argv = lone_name;
    }
    argv[0] = name;

    terminal_shell_start();
    const int result = velmora_main(argc, argv);
    terminal_shell_end();
    return result == 0 ? 0 : 255;
}

} // namespace velmora
