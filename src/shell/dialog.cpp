#include "shell/dialog.h"

#include "run/ui.h"

#include <cstdio>
#include <initializer_list>

namespace velmora {

dialog_state the_dialog_state;

/// The dialog behind the operations; set while they are installed.
static CVelmoraDlg* the_dialog = nullptr;

static const ui_ops dialog_ops = {
    [](const char* title) { the_dialog->prepare(title); },
    [] { the_dialog->reset(); },
    [](int, const char* text) { the_dialog->set_status(text); }, // there is one line
    [] { the_dialog->show(); },
    [] { the_dialog->hide(); },
    [](int percent) { the_dialog->set_progress(percent); },
    [] { return the_dialog->pump(); },
    [](const char* text) { the_dialog->message(text); },
    [] {},                       // before_log: the log is elsewhere
    [] { std::fflush(stderr); }, // a buffer saves calls where a system buffers no line by itself
};

window_result CVelmoraDlg::Create()
{
    const window_result result = window_->open(this);
    if (result == window_result::open) OnInitDialog();
    return result;
}

CVelmoraDlg::~CVelmoraDlg()
{
    if (the_dialog != this) return;
    ui_install(nullptr);
    the_dialog = nullptr;
}

bool CVelmoraDlg::OnInitDialog()
{
    the_dialog = this;
    ui_install(&dialog_ops);
    window_->set_title("Reduce STL");
    set_status("");
    show_percent(0);
    return true;
}

const CVelmoraDlg::message_map_entry* CVelmoraDlg::GetMessageMap()
{
    static const message_map_entry map[] = {
        {DLG_PAUSE, &CVelmoraDlg::OnPause},
        {DLG_RESUME, &CVelmoraDlg::OnResume},
        {DLG_STOP, &CVelmoraDlg::OnStop},
        {0, nullptr},
    };
    return map;
}

void CVelmoraDlg::clicked(int id)
{
    for (const message_map_entry* entry = GetMessageMap(); entry->handler; ++entry) {
        if (entry->id == id) (this->*entry->handler)();
    }
}

// The run stands still for as long as this does, since it is the run that called the pump.
void CVelmoraDlg::OnPause()
{
    set_buttons(false, true, true);
    the_dialog_state.paused = 1;
    while (the_dialog_state.paused && window_->wait_for_event()) {}
}

void CVelmoraDlg::OnResume()
{
    set_buttons(true, false, true);
    the_dialog_state.paused = 0;
}

void CVelmoraDlg::OnStop()
{
    set_buttons(false, false, true);
    the_dialog_state.paused = 0;
    the_dialog_state.run_flag = 0;
}

// Enabled first, so that a focus that has to leave its button finds the right one.
void CVelmoraDlg::set_buttons(bool pause, bool resume, bool stop)
{
    const struct {
        int id;
        bool on;
    } buttons[] = {{DLG_PAUSE, pause}, {DLG_RESUME, resume}, {DLG_STOP, stop}};
    for (const bool on : {true, false}) {
        for (const auto& button : buttons) {
            if (button.on == on) window_->enable(button.id, on);
        }
    }
}

void CVelmoraDlg::show_percent(int percent)
{
    char label[32];
    std::snprintf(label, sizeof label, "%d %%", percent);
    window_->set_bar(percent);
    window_->set_text(DLG_LABEL, label);
}

void CVelmoraDlg::prepare(const char* title)
{
    if (title) window_->set_title(title);
    set_buttons(true, false, true);
}

void CVelmoraDlg::reset()
{
    show_percent(0);
    set_buttons(true, false, true);
}

void CVelmoraDlg::set_status(const char* text)
{
    window_->set_text(DLG_STATUS, text);
}

void CVelmoraDlg::show()
{
    if (!the_dialog_state.ui_hidden) window_->show();
}

void CVelmoraDlg::hide()
{
    if (!the_dialog_state.ui_hidden) window_->hide();
}

void CVelmoraDlg::set_progress(int percent)
{
    show_percent(percent);
}

int CVelmoraDlg::pump()
{
    window_->handle_pending();
    return the_dialog_state.run_flag;
}

void CVelmoraDlg::message(const char* text)
{
    window_->message_box(text);
}

} // namespace velmora
