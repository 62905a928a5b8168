// The dialog on a scripted window: what its buttons do to a run, and what the run shows on it.
#include "run/ui.h"
#include "shell/app.h"
#include "shell/dialog.h"
#include "shell/scripted_window.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace velmora {

using texts = std::vector<std::string>;

/// A dialog on its window, as a run finds it at its first progress call.
struct dialog_fixture : testing::Test {
    scripted_window window;
    CVelmoraDlg dialog{&window};

    dialog_fixture()
    {
        the_dialog_state = {};
        EXPECT_EQ(dialog.Create(), window_result::open);
        ui_prepare(nullptr);
        ui_set_status(1, "Reducing STL model");
        ui_show();
        ui_reset();
        window.record.clear();
    }
};

TEST_F(dialog_fixture, shows_what_the_run_says)
{
    EXPECT_EQ(window.title, "Reduce STL");
    EXPECT_EQ(window.text(DLG_STATUS), "Reducing STL model");
    EXPECT_EQ(window.buttons(), "Pause Stop");
    EXPECT_TRUE(window.visible);

    ui_set_status(2, "");
    EXPECT_EQ(window.text(DLG_STATUS), "") << "all lines fall on the one control";
    ui_set_progress(42);
    EXPECT_EQ(window.bar, 42);
    EXPECT_EQ(window.text(DLG_LABEL), "42 %");
    ui_reset();
    EXPECT_EQ(window.bar, 0);
    EXPECT_EQ(window.text(DLG_LABEL), "0 %");
    ui_prepare("Other");
    EXPECT_EQ(window.title, "Other");
    ui_hide();
    EXPECT_FALSE(window.visible);
    ui_message("done");
    EXPECT_EQ(window.record, (texts{"hide", "box: done"}));
}

TEST_F(dialog_fixture, stays_as_it_is_when_hidden_for_good)
{
    the_dialog_state.ui_hidden = 1;
    ui_hide();
    EXPECT_TRUE(window.visible);
    ui_show();
    EXPECT_EQ(window.record, texts{});
}

TEST_F(dialog_fixture, goes_on_where_it_was_paused)
{
    window.script = {{}, {DLG_PAUSE}, {}, {}, {DLG_RESUME}, {}};
    EXPECT_EQ(ui_pump(), 1);
    EXPECT_EQ(window.waits, 0) << "nobody waits before Pause";
    EXPECT_EQ(ui_pump(), 1);
    EXPECT_EQ(window.waits, 3) << "events that are no click do not end the wait";
    EXPECT_EQ(window.script.size(), 1u);
    EXPECT_EQ(window.buttons(), "Pause Stop");
    EXPECT_EQ(window.record, (texts{"clicked 1155: Pause Stop", "clicked 1151: Pause Stop"}))
        << "Pause is left after Resume was handled inside it";
    EXPECT_EQ(the_dialog_state.paused, 0);
}

TEST_F(dialog_fixture, ends_the_run_by_stop_in_the_pause)
{
    window.script = {{DLG_PAUSE}, {DLG_STOP}, {}};
    EXPECT_EQ(ui_pump(), 0);
    EXPECT_EQ(window.waits, 1);
    EXPECT_EQ(window.buttons(), "Stop");
    EXPECT_EQ(ui_pump(), 0) << "a stopped run stays stopped";
}

TEST_F(dialog_fixture, bears_clicks_that_come_late)
{
    window.script = {{DLG_STOP, DLG_STOP, DLG_RESUME}, {DLG_STOP}};
    EXPECT_EQ(ui_pump(), 0);
    EXPECT_EQ(window.buttons(), "Pause Stop");
    EXPECT_EQ(ui_pump(), 0) << "Resume gives no life back";
    EXPECT_EQ(window.waits, 0);
    dialog.clicked(DLG_BAR);
    dialog.clicked(0);
    EXPECT_EQ(window.buttons(), "Stop") << "other controls have no say";
}

// Another program may send a second Pause, though the button is grey.
TEST_F(dialog_fixture, leaves_a_pause_within_a_pause_by_one_click)
{
    window.script = {{DLG_PAUSE}, {DLG_PAUSE}, {DLG_RESUME}, {}};
    EXPECT_EQ(ui_pump(), 1);
    EXPECT_EQ(window.waits, 2);
    EXPECT_EQ(window.script.size(), 1u);
}

TEST_F(dialog_fixture, lets_the_run_go_on_when_no_event_can_come)
{
    window.script = {{DLG_PAUSE}};
    EXPECT_EQ(ui_pump(), 1);
    EXPECT_EQ(window.waits, 1);
}

namespace {

texts run_words;
int run_result = 0;

int noted_run(int argc, char** argv)
{
    run_words.assign(argv, argv + argc);
    EXPECT_EQ(argv[argc], nullptr);
    ui_set_status(1, "seen");
    return run_result;
}

} // namespace

TEST(app, runs_with_the_words_of_its_command_line)
{
    scripted_window window;
    run_result = -1;
    CVelmoraApp app(&window, "-f \"my part.stl\" -P", noted_run);
    EXPECT_EQ(app.InitInstance(), -1);
    EXPECT_EQ(app.ExitInstance(), -1);
    EXPECT_EQ(exit_code, -1);
    EXPECT_EQ(run_words, (texts{"velmora", "-f", "my part.stl", "-P"}));
    EXPECT_EQ(window.text(DLG_STATUS), "seen");

    ui_set_status(1, "later"); // the dialog is gone
    EXPECT_EQ(window.text(DLG_STATUS), "seen");
}

TEST(app, takes_words_that_were_split_before)
{
    scripted_window window;
    run_result = 0;
    char path[] = "/usr/bin/other";
    char word[] = "a b";
    char* argv[] = {path, word, nullptr};
    CVelmoraApp app(&window, 2, argv, noted_run);
    EXPECT_EQ(app.InitInstance(), 0);
    EXPECT_EQ(run_words, (texts{"velmora", "a b"}));
}

TEST(app, tries_again_while_a_window_may_come)
{
    scripted_window window;
    window.open_results = {window_result::not_now, window_result::not_now, window_result::open};
    run_result = 0;
    EXPECT_EQ(CVelmoraApp(&window, "", noted_run).InitInstance(), 0);
    EXPECT_EQ(window.record, (texts{"open", "open", "open"}));
    EXPECT_EQ(window.text(DLG_STATUS), "seen");

    scripted_window nowhere;
    nowhere.open_results = {window_result::never};
    EXPECT_EQ(CVelmoraApp(&nowhere, "-x", noted_run).InitInstance(), 0);
    EXPECT_EQ(run_words, (texts{"velmora", "-x"})) << "the run needs no window";
    EXPECT_EQ(nowhere.record, texts{"open"});
}

} // namespace velmora
