// The terminal shell in a real pseudo-terminal: what stands on the screen, and what signals do.
#include "mesh/log.h"
#include "run/ui.h"
#include "shell/pty_job.h"
#include "shell/terminal_shell.h"

#include <csignal>
#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace velmora {

static void start_run()
{
    terminal_shell_start();
    ui_prepare(nullptr);
    ui_set_status(1, "Reducing STL model");
    ui_set_status(2, "");
    ui_show();
    ui_reset();
}

static int end_run()
{
    const int result = ui_pump() ? 0 : 255;
    terminal_shell_end();
    return result;
}

static std::string bar(int done, const std::string& label)
{
    return "[" + std::string(done, '#') + std::string(30 - done, '.') + "] " + label;
}

TEST(terminal_shell, keeps_a_line_below_the_log)
{
    pty_job job("xterm", 80, [](pty_job& here) {
        start_run();
        log_line("first\n");
        here.stop_here();
        ui_set_progress(10);
        ui_set_status(1, "Working");
        log_line("second and\nthird\n");
        here.stop_here();
        ui_set_progress(10);
        ui_set_status(1, "Working");
        here.stop_here();
        ui_set_status(1, "");
        ui_set_progress(100);
        here.stop_here();
        ui_hide();
        ui_message("all done");
        return end_run();
    });
    ASSERT_TRUE(job.is_there());
    EXPECT_EQ(job.screen(), "first\n" + bar(0, "  0 %"));
    ASSERT_TRUE(job.goes_on());
    EXPECT_EQ(job.screen(), "first\nsecond and\nthird\nWorking  " + bar(3, " 10 %"));

    const std::string before = job.output();
    ASSERT_TRUE(job.goes_on());
    EXPECT_EQ(job.output(), before) << "nothing changed, nothing is drawn";

    ASSERT_TRUE(job.goes_on());
    EXPECT_EQ(job.screen(), "first\nsecond and\nthird\n" + bar(30, "100 %"));
    EXPECT_TRUE(job.goes_on_to_end(0));
    EXPECT_EQ(job.screen(), "first\nsecond and\nthird\nall done");
}

TEST(terminal_shell, fits_its_line_to_the_window)
{
    pty_job job("xterm", 30, [](pty_job& here) {
        start_run();
        ui_set_progress(50);
        here.stop_here();
        return end_run();
    });
    ASSERT_TRUE(job.is_there());
    EXPECT_EQ(job.screen(), "[##########...........]  50 %");
    job.resize(12);
    EXPECT_EQ(job.screen_until(" 50 %"), " 50 %");
    job.resize(5);
    EXPECT_EQ(job.screen_until(""), "");
    EXPECT_TRUE(job.goes_on_to_end(0));
}

TEST(terminal_shell, writes_nothing_of_its_own_where_lines_cannot_be_erased)
{
    const auto run = [](pty_job&) {
        start_run();
        ui_set_progress(40);
        log_line("a line\n");
        ui_message("a box");
        return end_run();
    };
    for (const char* terminal : {"dumb", ""}) {
        pty_job job(terminal, 80, run);
        EXPECT_TRUE(job.ends(0));
        EXPECT_EQ(job.output(), "a line\r\n");
    }
    pty_job job("xterm", 80, [&run](pty_job& here) {
        dup2(fileno(std::tmpfile()), STDERR_FILENO); // a file in the place of the terminal
        run(here);
        return static_cast<int>(lseek(STDERR_FILENO, 0, SEEK_END));
    });
    EXPECT_TRUE(job.ends(7)) << "the line and no more";
    EXPECT_EQ(job.output(), "");
}

TEST(terminal_shell, takes_ctrl_c_as_stop)
{
    pty_job job("xterm", 80, [](pty_job& here) {
        start_run();
        if (!ui_pump()) return 1;
        here.stop_here();
        return end_run();
    });
    ASSERT_TRUE(job.is_there());
    job.type("\003");
    EXPECT_TRUE(job.gets("^C", "  0 %")) << "the ^C is drawn over";
    EXPECT_EQ(job.screen(), bar(0, "  0 %"));
    EXPECT_TRUE(job.goes_on_to_end(255));
    EXPECT_EQ(job.screen(), "");
}

TEST(terminal_shell, ends_at_once_when_asked_twice)
{
    pty_job job("xterm", 80, [](pty_job& here) {
        start_run();
        log_line("kept\n");
        here.stop_here();
        return 1;
    });
    ASSERT_TRUE(job.is_there());
    job.type("\003");
    EXPECT_TRUE(job.gets("^C", "  0 %"));
    job.type("\003");
    const int status = job.next_status();
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT);
    EXPECT_TRUE(job.screen().starts_with("kept"));
    EXPECT_EQ(job.screen().find('['), std::string::npos);
}

TEST(terminal_shell, clears_the_line_while_suspended)
{
    pty_job job("xterm", 80, [](pty_job& here) {
        start_run();
        log_line("kept\n");
        here.stop_here();
        ui_set_progress(100);
        here.stop_here();
        return end_run();
    });
    ASSERT_TRUE(job.is_there());
    for (int round = 0; round < 2; ++round) {
        job.type("\032");
        const int status = job.next_status();
        EXPECT_TRUE(WIFSTOPPED(status) && WSTOPSIG(status) == SIGTSTP);
        EXPECT_EQ(job.screen().find('['), std::string::npos);
        job.bring_to_front();
        EXPECT_TRUE(job.gets("^Z", bar(0, "  0 %"))) << job.screen();
    }
    ASSERT_TRUE(job.goes_on());
    EXPECT_TRUE(job.screen().ends_with(bar(30, "100 %")));
    EXPECT_TRUE(job.goes_on_to_end(0));
}

TEST(terminal_shell, leaves_the_screen_to_the_job_in_front)
{
    pty_job job("xterm", 80, [](pty_job& here) {
        std::signal(SIGTTOU, SIG_IGN);
        tcsetpgrp(STDIN_FILENO, getppid());
        start_run();
        log_line("from behind\n");
        ui_set_progress(30);
        here.stop_here();
        tcsetpgrp(STDIN_FILENO, getpgrp());
        ui_set_progress(60);
        here.stop_here();
        return end_run();
    });
    ASSERT_TRUE(job.is_there());
    EXPECT_EQ(job.output(), "from behind\r\n");
    ASSERT_TRUE(job.goes_on());
    EXPECT_EQ(job.screen(), "from behind\n" + bar(18, " 60 %"));
    EXPECT_TRUE(job.goes_on_to_end(0));
}

static int caught = 0;

TEST(terminal_shell, gives_signals_back_and_leaves_ignored_ones_alone)
{
    const auto catcher = [](int) { ++caught; };
    const auto before_int = std::signal(SIGINT, catcher);
    const auto before_term = std::signal(SIGTERM, SIG_IGN);

    terminal_shell_start();
    std::raise(SIGTERM);
    EXPECT_EQ(ui_pump(), 1);
    std::raise(SIGINT);
    EXPECT_EQ(ui_pump(), 0);
    EXPECT_EQ(caught, 0);
    terminal_shell_end();

    std::raise(SIGINT);
    EXPECT_EQ(caught, 1);
    EXPECT_EQ(std::signal(SIGTERM, before_term), SIG_IGN);
    std::signal(SIGINT, before_int);

    terminal_shell_start();
    EXPECT_EQ(ui_pump(), 1) << "a new run has not been stopped yet";
    terminal_shell_end();
}

} // namespace velmora
