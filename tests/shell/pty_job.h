// tests/shell/pty_job.h - runs a piece of code as a shell's job in a terminal, and reads the
// screen.
#pragma once

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <poll.h>
#include <pty.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace velmora {

inline constexpr int k_patience_ms = 20000; ///< a test that waits longer has failed
inline constexpr int k_quiet_ms = 100;      ///< no output for so long: there is none under way
inline constexpr int k_step_ms = 10;

/// What a terminal makes of the few codes that are written to it.
class tiny_screen {
  public:
    void put(const std::string& bytes)
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
    /// The rows down to the last that holds anything, without blanks at their ends.
    std::string text() const
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

  private:
    void put_code(char final)
    {
        if (row().size() > column_) row().resize(column_);
        if (final == 'J') rows_.resize(row_ + 1);
    }
    std::string& row()
    {
        if (rows_.size() <= row_) rows_.resize(row_ + 1);
        return rows_[row_];
    }

    std::vector<std::string> rows_;
    std::string code_; ///< of an unfinished code, from its escape on
    std::size_t row_ = 0;
    std::size_t column_ = 0;
};

inline bool is_ready(int file, int wait_ms)
{
    pollfd poll_one = {file, POLLIN, 0};
    return poll(&poll_one, 1, wait_ms) > 0;
}

inline void write_byte(int file)
{
    while (write(file, "x", 1) < 0 && errno == EINTR) {}
}

inline bool read_byte(int file)
{
    char byte;
    ssize_t got;
    while ((got = read(file, &byte, 1)) < 0 && errno == EINTR) {}
    return got == 1;
}

/// A job with the terminal as its three standard streams, in front of a small shell that reports
/// when the job stops or ends, as a user's shell would. The job meets the test at `stop_here`.
class pty_job {
  public:
    using body_fn = std::function<int(pty_job&)>;

    /// `terminal` is the value of TERM. The job's result is its exit status.
    pty_job(const char* terminal, int columns, const body_fn& body)
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
    ~pty_job()
    {
        close(terminal_); // hangs up whoever is left
        for (const int file :
             {here_[0], further_[0], further_[1], order_[0], order_[1], status_[0]}) {
            close(file);
        }
        kill(shell_, SIGKILL);
        waitpid(shell_, nullptr, 0);
    }
    pty_job(const pty_job&) = delete;
    pty_job& operator=(const pty_job&) = delete;

    /// For the job: waits until the test says `go_on`. Signals are handled meanwhile.
    void stop_here()
    {
        write_byte(here_[1]);
        read_byte(further_[0]);
    }

    /// For the test: waits until the job has come to stop_here; false when it ended before.
    bool is_there()
    {
        return is_ready(here_[0], k_patience_ms) && read_byte(here_[0]);
    }
    void go_on()
    {
        write_byte(further_[1]);
    }
    /// Lets it go on to the next stop_here, or to its end with this result.
    bool goes_on()
    {
        go_on();
        return is_there();
    }
    bool goes_on_to_end(int result)
    {
        go_on();
        return ends(result);
    }
    /// "\003" is Ctrl-C, "\032" Ctrl-Z
    void type(const std::string& keys)
    {
        if (write(terminal_, keys.data(), keys.size()) < 0) std::abort();
    }
    void resize(int columns)
    {
        const winsize size = {24, static_cast<unsigned short>(columns), 0, 0};
        ioctl(terminal_, TIOCSWINSZ, &size);
    }
    /// What `fg` does.
    void bring_to_front()
    {
        write_byte(order_[1]);
    }
    /// Waits for the job to stop or end; as from waitpid.
    int next_status()
    {
        int status = -1;
        if (is_ready(status_[0], k_patience_ms) && read(status_[0], &status, sizeof status) < 0)
            return -1;
        return status;
    }

    bool ends(int result)
    {
        const int status = next_status();
        return WIFEXITED(status) && WEXITSTATUS(status) == result;
    }

    /// What has come to the terminal until nothing has come for a moment.
    const std::string& output()
    {
        collect(k_quiet_ms);
        return output_;
    }
    std::string screen()
    {
        tiny_screen screen;
        screen.put(output());
        return screen.text();
    }

    /// The screen as soon as it is `expected`, or as it is when that takes too long.
    std::string screen_until(const std::string& expected)
    {
        std::string text;
        for (int waited = 0; waited < k_patience_ms; waited += k_quiet_ms) {
            text = screen();
            if (text == expected) break;
        }
        return text;
    }

    /// Waits until the terminal has got `text` behind `mark`; false when that takes too long.
    bool gets(const std::string& mark, const std::string& text)
    {
        for (int waited = 0; waited < k_patience_ms; waited += k_step_ms) {
            collect(k_step_ms);
            const std::size_t at = output_.rfind(mark);
            if (at != std::string::npos && output_.find(text, at) != std::string::npos) return true;
        }
        return false;
    }

  private:
    void collect(int wait_ms)
    {
        char bytes[4096];
        while (is_ready(terminal_, wait_ms)) {
            const ssize_t got = read(terminal_, bytes, sizeof bytes);
            if (got <= 0) break;
            output_.append(bytes, static_cast<std::size_t>(got));
        }
    }
    [[noreturn]] void run_shell(const char* terminal, const body_fn& body)
    {
        std::signal(SIGTTOU,
                    SIG_IGN); // the shell is in the background when it puts the job in front
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

    int terminal_ = -1;
    pid_t shell_ = -1;
    int here_[2];    ///< job to test: one byte at each stop_here
    int further_[2]; ///< test to job: one byte for each go_on
    int order_[2];   ///< test to shell: one byte for each bring_to_front
    int status_[2];  ///< shell to test: results of waitpid
    std::string output_;
};

} // namespace velmora
