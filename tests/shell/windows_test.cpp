// What only the Windows program can get wrong: messages from other programs, names, streams.
#include "shell/window_fixture.h"

#include <cstdlib>
#include <filesystem>
#include <future>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>

namespace velmora {

struct windows_fixture : window_fixture {
    void SetUp() override
    {
        if (!windows_folder()) GTEST_SKIP() << "not under wine";
        window_fixture::SetUp();
    }

    std::future<int> send_click(int id) const
    {
        return send(k_title, "command " + std::to_string(id));
    }

    /// Runs the program with these words, as they are typed, without a screen; its exit status.
    int run_typed(const std::string& words) const
    {
        const std::string command = "cd '" + folder.path.string() + "' && env -u DISPLAY '" +
                                    program() + "' " + options + " " + words + " 2>.log";
        const int status = std::system(command.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
};

// The sender is answered before the pause begins. The pause ends by what was sent alone: a hidden
// window has nothing to draw, which would be an event as well.
TEST_F(windows_fixture, obeys_clicks_sent_by_another_program)
{
    for (const int end : {DLG_STOP, DLG_RESUME}) {
        window_run run = start("-o out.stl");
        std::future<int> paused = send_click(DLG_PAUSE);
        run.feed(model);
        EXPECT_EQ(paused.get(), 0);
        EXPECT_TRUE(run.stands_still()) << log();
        EXPECT_EQ(send(k_title, "hide").get(), 0);
        EXPECT_EQ(send_click(end).get(), 0);
        if (end == DLG_STOP) {
            expect_stopped(&run);
            continue;
        }
        EXPECT_EQ(run.status(), 0) << log();
        EXPECT_TRUE(is_reduced("out.stl"));
    }
}

TEST_F(windows_fixture, takes_closing_as_stop)
{
    for (const bool held : {false, true}) {
        window_run run = start("-o out.stl");
        if (held) screen().click(k_title, DLG_PAUSE);
        std::future<int> closed;
        if (!held) closed = send(k_title, "close");
        run.feed(model);
        if (held) {
            EXPECT_TRUE(run.stands_still()) << log();
            closed = send(k_title, "close");
        }
        EXPECT_EQ(closed.get(), 0);
        expect_stopped(&run);
    }
}

TEST_F(windows_fixture, takes_any_name)
{
    const std::string name = "Größe 部品 \U0001F4D0.stl";
    folder.write(name, model);
    EXPECT_EQ(run_typed("-f '" + name + "' -o 'neu " + name + "'"), 0) << log();
    EXPECT_TRUE(is_reduced("neu " + name));
    EXPECT_NE(log().find("wrote output file  \"neu " + name + "\""), std::string::npos) << log();

    EXPECT_EQ(run_typed("-f none.stl -o out.stl"), 255);
    EXPECT_TRUE(log().ends_with("unable to access (mode:rb) neither \"none.stl\" nor "
                                "\"<ditto>.stl\" (No such file or directory)\n"))
        << log();
}

TEST_F(windows_fixture, replaces_a_model_in_its_place)
{
    for (int round = 0; round < 2; ++round) { // the second time part.stl~ is there already
        folder.write("part.stl", model);
        EXPECT_EQ(run_typed("-f part.stl -o ="), 0) << log();
        EXPECT_TRUE(is_reduced("part.stl"));
        EXPECT_TRUE(folder.read("part.stl~") == model);
    }
    EXPECT_EQ(run_typed("-f part.stl -o PART.STL"), 255) << "the same file by another name";
    EXPECT_NE(log().find("(it is the input file)"), std::string::npos) << log();
    EXPECT_TRUE(is_reduced("part.stl"));
}

TEST_F(windows_fixture, leaves_the_bytes_of_its_streams_alone)
{
    folder.write("in.stl", model);
    for (const char* form : {"-O a", "-O b", "-O m"}) {
        const program_result ours = folder.run(options + " " + form + " <in.stl");
        EXPECT_EQ(run_typed(form + std::string(" <in.stl >out")), 0) << log();
        EXPECT_TRUE(folder.read("out") == ours.out) << form;
        EXPECT_EQ(log().find('\r'), std::string::npos);
    }
}

TEST_F(windows_fixture, answers_a_lone_question_without_a_window)
{
    options.clear();
    EXPECT_EQ(run_typed("--version >out"), 0);
    EXPECT_EQ(folder.read("out"), "VELMORA version 5.0\r\n");
    EXPECT_EQ(run_typed("--help >out"), 0);
    EXPECT_EQ(folder.read("out").find("velmora takes a triangle model"), 0u);
    EXPECT_EQ(log(), "");
}

} // namespace velmora
