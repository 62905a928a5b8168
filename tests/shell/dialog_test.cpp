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
struct shown_dialog {
    scripted_window window;
    CVelmoraDlg dialog{&window};

    shown_dialog()
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

struct dialog_fixture : testing::Test, shown_dialog {};

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

struct pause_case {
    const char* name;
    std::deque<std::vector<int>> script; ///< of which the last step is left
    int goes_on;
    int waits;
    const char* buttons;
};

static const pause_case pause_cases[] = {
    {"nobody waits before Pause", {{}, {}}, 1, 0, "Pause Stop"},
    {"other events do not end it", {{DLG_PAUSE}, {}, {}, {DLG_RESUME}, {}}, 1, 3, "Pause Stop"},
    {"Stop in the pause", {{DLG_PAUSE}, {DLG_STOP}, {}}, 0, 1, "Stop"},
    // Another program may send a second Pause, though the button is grey.
    {"left by one click", {{DLG_PAUSE}, {DLG_PAUSE}, {DLG_RESUME}, {}}, 1, 2, "Pause Stop"},
};

TEST(dialog, goes_on_where_it_was_paused)
{
    for (const pause_case& c : pause_cases) {
        SCOPED_TRACE(c.name);
        shown_dialog shown;
        shown.window.script = c.script;
        EXPECT_EQ(ui_pump(), c.goes_on);
        EXPECT_EQ(shown.window.waits, c.waits);
        EXPECT_EQ(shown.window.script.size(), 1u);
        EXPECT_EQ(shown.window.buttons(), c.buttons);
        EXPECT_EQ(the_dialog_state.paused, 0);
        EXPECT_EQ(ui_pump(), c.goes_on) << "a stopped run stays stopped";
    }
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
