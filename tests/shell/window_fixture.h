// tests/shell/window_fixture.h - the program with the window, ready to be clicked.
//
// The model comes through a pipe, so that a run waits for its first progress call until the test
// has done what it came for. VELMORA_UNDER_WINE may name a folder with the Windows programs, which
// are tested then in the place of ours.
#pragma once

#include "program/program_run.h"
#include "shell/dialog_ids.h"
#include "shell/x_screen.h"

#include <chrono>
#include <cstdlib>
#include <future>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace velmora {

inline constexpr const char* k_title = "Reduce STL";
inline constexpr const char* k_box_title = "velmora";
inline constexpr const char* k_stopped = "velmora: program aborted by the user\n";

/// The program in an empty folder, and what the plain program makes of the same model.
struct window_fixture : testing::Test {
    run_folder folder;
    std::string model = binary_stl(box_mesh(30, 20, 10, 12));
    std::string options = "-q 1 -r 0.05 -c 0.9 -F b -O b";

    /// Null when we are tested ourselves.
    static const char* windows_folder()
    {
        return std::getenv("VELMORA_UNDER_WINE");
    }

    static std::string program()
    {
        const char* windows = windows_folder();
        return windows ? std::string(windows) + "/velmora" : VELMORA_WINDOW_PROGRAM;
    }

    void SetUp() override
    {
        if (!x_screen::is_possible()) GTEST_SKIP() << "Xvfb and xdotool are not installed";
        if (program().empty()) GTEST_SKIP() << "the window was not built";
    }

    std::vector<std::string> command(const std::string& more) const
    {
        std::vector<std::string> words = {program()};
        std::istringstream all(options + " " + more);
        for (std::string word; all >> word;)
            words.push_back(word);
        return words;
    }

    /// The window's program, on the shared screen unless told otherwise.
    window_run start(const std::string& more, const std::string& display = screen().display())
    {
        return {folder.path, command(more), display};
    }

    /// Under wine: lets another program send a message to the window `title`; the answer is 0 when
    /// it was handled. Returns when the message is under way, or could not be sent.
    std::future<int> send(const std::string& title, const std::string& message) const
    {
        using namespace std::chrono_literals;
        const std::string command = "DISPLAY=" + screen().display() + " '" + windows_folder() +
                                    "/send_message' '" + title + "' " + message + " >'" +
                                    (folder.path / "sent").string() + "'";
        folder.write("sent", "");
        auto answer =
            std::async(std::launch::async, [command] { return std::system(command.c_str()); });
        while (folder.read("sent").empty() && answer.wait_for(20ms) != std::future_status::ready) {}
        std::this_thread::sleep_for(100ms); // between its word and the deed
        return answer;
    }

    static x_screen& screen()
    {
        return x_screen::shared();
    }

    std::string log() const
    {
        return folder.read(".log");
    }

    void expect_stopped(window_run* run) const
    {
        EXPECT_EQ(run->status(), 255) << log();
        EXPECT_TRUE(log().ends_with(k_stopped)) << log();
        EXPECT_EQ(folder.read("out.stl"), "");
    }

    /// Whether a file is what the plain program makes of the model. The log stays.
    bool is_reduced(const std::string& name) const
    {
        const std::string log_before = log();
        folder.write("plain_in.stl", model);
        EXPECT_EQ(folder.run(options + " -f plain_in.stl -o plain.stl").status, 0);
        folder.write(".log", log_before);
        const std::string expected = folder.read("plain.stl");
        return !expected.empty() && folder.read(name) == expected;
    }
};

} // namespace velmora
