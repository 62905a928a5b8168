// tests/shell/x_screen.h - a screen in memory, a user's hands on it, and a program under test.
#pragma once

#include <filesystem>
#include <string>
#include <sys/types.h>
#include <vector>

namespace velmora {

/// An X server of its own, gone with the object.
class x_screen {
  public:
    /// The one that most tests share.
    static x_screen& shared();
    /// Whether the tools are installed that all this takes.
    static bool is_possible();

    x_screen();
    ~x_screen();
    x_screen(const x_screen&) = delete;
    x_screen& operator=(const x_screen&) = delete;

    const std::string& display() const
    {
        return display_;
    }

    /// Waits until a window with this title is on the screen; false when that takes too long.
    bool shows(const std::string& title);

    /// Clicks the middle of control `id` of the dialog with this title.
    void click(const std::string& title, int id);

    /// Presses a key, by its X name, in the window with this title.
    void press(const std::string& title, const std::string& key);

    /// Ends the server while its clients still run.
    void pull_the_plug();

  private:
    std::string window(const std::string& title);
    std::string tool(const std::string& arguments);

    std::string display_;
    pid_t server_ = -1;
};

/// A program that runs in a folder, with a display or none ("").
class window_run {
  public:
    window_run(const std::filesystem::path& folder, const std::vector<std::string>& command,
               const std::string& display);
    ~window_run();
    window_run(const window_run&) = delete;
    window_run& operator=(const window_run&) = delete;

    /// All of its standard input. Until this is called the program waits for it.
    void feed(const std::string& bytes);

    /// Whether it is alive and has used no time at all for a while.
    bool stands_still();

    /// Waits for its end; its exit status, -1 when it died otherwise or takes too long.
    int status();

  private:
    long cpu_ticks() const;
    bool has_ended();

    pid_t process_ = -1;
    int input_ = -1;
    int status_ = -1;
};

} // namespace velmora
