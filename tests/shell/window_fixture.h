// tests/shell/window_fixture.h - the program with the window, ready to be clicked.
//
// The model comes through a pipe, so that a run waits for its first progress call until the test
// has done what it came for. VELMORA_UNDER_WINE may name a folder with the Windows programs, which
// are tested then in the place of ours.
#pragma once

#include "program/program_run.h"
#include "shell/dialog_ids.h"
#include "shell/x_screen.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
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

    static x_screen& screen()
    {
        return x_screen::shared();
    }

    std::string log() const
    {
        return folder.read(".log");
    }

    bool gives_what_the_plain_program_gives() const
    {
        const std::string result = folder.read("out.stl");
        folder.write("in.stl", model);
        EXPECT_EQ(folder.run(options + " -f in.stl -o plain.stl").status, 0);
        return !result.empty() && result == folder.read("plain.stl");
    }
};

} // namespace velmora
