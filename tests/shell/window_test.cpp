// The progress window for real: on a screen, clicked by a user.
#include "shell/window_fixture.h"

#include <gtest/gtest.h>
#include <string>

namespace velmora {

#ifdef VELMORA_CHECKED
static constexpr int k_large = 40; // the audits take their time
#else
static constexpr int k_large = 130;
#endif

TEST_F(window_fixture, holds_a_large_run_until_resume)
{
    model = binary_stl(box_mesh(300, 200, 100, k_large));
    folder.write("large.stl", model);
    window_run run = start("-f large.stl -o out.stl");
    screen().click(k_title, DLG_PAUSE);
    EXPECT_TRUE(run.stands_still()) << log();
    screen().click(k_title, DLG_PAUSE); // it is grey
    EXPECT_TRUE(run.stands_still()) << log();
    screen().click(k_title, DLG_RESUME);
    EXPECT_EQ(run.status(), 0) << log();
    EXPECT_TRUE(is_reduced("out.stl"));
}

TEST_F(window_fixture, ends_a_held_run_by_stop)
{
    window_run run = start("-o out.stl");
    screen().click(k_title, DLG_PAUSE);
    run.feed(model);
    EXPECT_TRUE(run.stands_still()) << log();
    screen().click(k_title, DLG_STOP);
    expect_stopped(&run);
}

TEST_F(window_fixture, takes_escape_as_stop)
{
    window_run run = start("-o out.stl");
    screen().press(k_title, "Escape");
    run.feed(model);
    expect_stopped(&run);
}

// The focus goes with the buttons: Enter pauses, resumes, pauses; one Tab further is Stop.
TEST_F(window_fixture, works_by_keys)
{
    window_run run = start("-o out.stl");
    screen().press(k_title, "Return Return Return");
    run.feed(model);
    EXPECT_TRUE(run.stands_still()) << log();
    screen().press(k_title, "Tab Return");
    expect_stopped(&run);
}

TEST_F(window_fixture, tells_the_end_in_a_box)
{
    for (const bool stopped : {true, false}) {
        window_run run = start("-o out.stl -W N");
        if (stopped) screen().click(k_title, DLG_STOP);
        ASSERT_TRUE(screen().shows(k_title));
        run.feed(model);
        ASSERT_TRUE(screen().shows(k_box_title)) << log();
        EXPECT_TRUE(run.stands_still()) << log();
        if (windows_folder()) {
            EXPECT_EQ(send(k_box_title, "text").get(), 0);
            EXPECT_EQ(folder.read("sent"),
                      stopped ? "STL processing failed. Please check the log file\r\n"
                              : "STL processing completed. Please check the log file\r\n");
        }
        screen().press(k_box_title, "Return");
        EXPECT_EQ(run.status(), stopped ? 255 : 0) << log();
        EXPECT_TRUE(stopped || is_reduced("out.stl"));
    }
}

TEST_F(window_fixture, runs_without_a_display)
{
    if (windows_folder()) GTEST_SKIP() << "wine has a window system of its own";
    for (const char* display : {"", ":4711"}) {
        window_run run = start("-o out.stl -W N", display);
        run.feed(model);
        EXPECT_EQ(run.status(), 0) << log();
        EXPECT_TRUE(is_reduced("out.stl"));
    }
}

TEST_F(window_fixture, goes_on_when_its_display_goes_away)
{
    if (windows_folder()) GTEST_SKIP() << "wine ends its programs then";
    for (const bool held : {true, false}) {
        x_screen own;
        window_run run = start("-o out.stl -W N", own.display());
        ASSERT_TRUE(own.shows(k_title));
        if (held) {
            own.click(k_title, DLG_PAUSE);
            run.feed(model);
            EXPECT_TRUE(run.stands_still()) << log();
        }
        own.pull_the_plug();
        if (!held) run.feed(model);
        EXPECT_EQ(run.status(), 0) << log();
        EXPECT_TRUE(is_reduced("out.stl"));
    }
}

} // namespace velmora
