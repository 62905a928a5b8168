// tests/shell/pty_job.h - runs a piece of code as a shell's job in a terminal, and reads the
// screen.
#pragma once

#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace velmora {

/// What a terminal makes of the few codes that are written to it.
class tiny_screen {
  public:
    void put(const std::string& bytes);
    /// The rows down to the last that holds anything, without blanks at their ends.
    std::string text() const;

  private:
    void put_code(char final);
    std::string& row();

    std::vector<std::string> rows_;
    std::string code_; ///< of an unfinished code, from its escape on
    std::size_t row_ = 0;
    std::size_t column_ = 0;
};

/// A job with the terminal as its three standard streams, in front of a small shell that reports
/// when the job stops or ends, as a user's shell would. The job meets the test at `stop_here`.
class pty_job {
  public:
    using body_fn = std::function<int(pty_job&)>;

    /// `terminal` is the value of TERM. The job's result is its exit status.
    pty_job(const char* terminal, int columns, const body_fn& body);
    ~pty_job();
    pty_job(const pty_job&) = delete;
    pty_job& operator=(const pty_job&) = delete;

    /// For the job: waits until the test says `go_on`. Signals are handled meanwhile.
    void stop_here();

    /// For the test: waits until the job has come to stop_here; false when it ended before.
    bool is_there();
    void go_on();
    void type(const std::string& keys); ///< "\003" is Ctrl-C, "\032" Ctrl-Z
    void resize(int columns);
    void bring_to_front(); ///< what `fg` does
    int next_status();     ///< waits for the job to stop or end; as from waitpid

    /// What has come to the terminal until nothing has come for a moment.
    const std::string& output();
    std::string screen();

    /// The screen as soon as it is `expected`, or as it is when that takes too long.
    std::string screen_until(const std::string& expected);

    /// Waits until the terminal has got `text` behind `mark`; false when that takes too long.
    bool gets(const std::string& mark, const std::string& text);

  private:
    void collect(int wait_ms);
    [[noreturn]] void run_shell(const char* terminal, const body_fn& body);

    int terminal_ = -1;
    pid_t shell_ = -1;
    int here_[2];    ///< job to test: one byte at each stop_here
    int further_[2]; ///< test to job: one byte for each go_on
    int order_[2];   ///< test to shell: one byte for each bring_to_front
    int status_[2];  ///< shell to test: results of waitpid
    std::string output_;
};

} // namespace velmora
