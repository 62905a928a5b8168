#include "shell/pty_job.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace velmora {

static constexpr int k_patience_ms = 20000; ///< a test that waits longer has failed
static constexpr int k_quiet_ms = 100;      ///< no output for so long: there is none under way
static constexpr int k_step_ms = 10;

std::string& tiny_screen::row()
{
    if (rows_.size() <= row_) rows_.resize(row_ + 1);
    return rows_[row_];
}

void tiny_screen::put_code(char final)
{
    if (row().size() > column_) row().resize(column_);
    if (final == 'J') rows_.resize(row_ + 1);
}

void tiny_screen::put(const std::string& bytes)
{
    for (const char c : bytes) {
        if (c == '\033' || !code_.empty()) {
            code_ += c;
            if (code_.size() < 3) continue;
            put_code(c);
            code_.clear();
        } else if (c == '\r') {
            column_ = 0;
        } else if (c == '\n') {
            ++row_;
        } else {
            if (row().size() <= column_) row().resize(column_ + 1, ' ');
            row()[column_++] = c;
        }
    }
}

std::string tiny_screen::text() const
{
    std::string all;
    for (const std::string& row : rows_) {
        const std::size_t last = row.find_last_not_of(' ');
        all += row.substr(0, last == std::string::npos ? 0 : last + 1) + "\n";
    }
    while (all.ends_with("\n"))
        all.pop_back();
    return all;
}

static bool is_ready(int file, int wait_ms)
{
    pollfd poll_one = {file, POLLIN, 0};
    return poll(&poll_one, 1, wait_ms) > 0;
}

static void write_byte(int file)
{
    while (write(file, "x", 1) < 0 && errno == EINTR) {}
}

static bool read_byte(int file)
{
    char byte;
    ssize_t got;
    while ((got = read(file, &byte, 1)) < 0 && errno == EINTR) {}
    return got == 1;
}

pty_job::pty_job(const char* terminal, int columns, const body_fn& body)
{
    for (int* ends : {here_, further_, order_, status_}) {
        if (pipe(ends) != 0) std::abort();
    }
    winsize size = {24, static_cast<unsigned short>(columns), 0, 0};
    shell_ = forkpty(&terminal_, nullptr, nullptr, &size);
    if (shell_ == 0) run_shell(terminal, body);
    close(here_[1]);
    close(status_[1]);
}

pty_job::~pty_job()
{
    close(terminal_); // hangs up whoever is left
    for (const int file : {here_[0], further_[0], further_[1], order_[0], order_[1], status_[0]}) {
        close(file);
    }
    kill(shell_, SIGKILL);
    waitpid(shell_, nullptr, 0);
}

void pty_job::run_shell(const char* terminal, const body_fn& body)
{
    std::signal(SIGTTOU, SIG_IGN); // the shell is in the background when it puts the job in front
    const pid_t job = fork();
    if (job == 0) {
        setpgid(0, 0);
        tcsetpgrp(STDIN_FILENO, getpid());
        std::signal(SIGTTOU, SIG_DFL);
        setenv("TERM", terminal, 1);
        _exit(body(*this));
    }
    close(here_[1]);
    int status = 0;
    while (waitpid(job, &status, WUNTRACED) == job) {
        if (write(status_[1], &status, sizeof status) < 0) break;
        if (!WIFSTOPPED(status)) break;
        tcsetpgrp(STDIN_FILENO, getpgrp());
        if (!read_byte(order_[0])) break;
        tcsetpgrp(STDIN_FILENO, job);
        kill(-job, SIGCONT);
    }
    pause(); // the terminal stays until the test has read it
    _exit(0);
}

void pty_job::stop_here()
{
    write_byte(here_[1]);
    read_byte(further_[0]);
}

bool pty_job::is_there()
{
    return is_ready(here_[0], k_patience_ms) && read_byte(here_[0]);
}

void pty_job::go_on()
{
    write_byte(further_[1]);
}

void pty_job::type(const std::string& keys)
{
    if (write(terminal_, keys.data(), keys.size()) < 0) std::abort();
}

void pty_job::resize(int columns)
{
    const winsize size = {24, static_cast<unsigned short>(columns), 0, 0};
    ioctl(terminal_, TIOCSWINSZ, &size);
}

void pty_job::bring_to_front()
{
    write_byte(order_[1]);
}

int pty_job::next_status()
{
    int status = -1;
    if (is_ready(status_[0], k_patience_ms) && read(status_[0], &status, sizeof status) < 0)
        return -1;
    return status;
}

void pty_job::collect(int wait_ms)
{
    char bytes[4096];
    while (is_ready(terminal_, wait_ms)) {
        const ssize_t got = read(terminal_, bytes, sizeof bytes);
        if (got <= 0) break;
        output_.append(bytes, static_cast<std::size_t>(got));
    }
}

const std::string& pty_job::output()
{
    collect(k_quiet_ms);
    return output_;
}

std::string pty_job::screen()
{
    tiny_screen screen;
    screen.put(output());
    return screen.text();
}

std::string pty_job::screen_until(const std::string& expected)
{
    std::string text;
    for (int waited = 0; waited < k_patience_ms; waited += k_quiet_ms) {
        text = screen();
        if (text == expected) break;
    }
    return text;
}

bool pty_job::gets(const std::string& mark, const std::string& text)
{
    for (int waited = 0; waited < k_patience_ms; waited += k_step_ms) {
        collect(k_step_ms);
        const std::size_t at = output_.rfind(mark);
        if (at != std::string::npos && output_.find(text, at) != std::string::npos) return true;
    }
    return false;
}

} // namespace velmora
