#include "run/ui.h"

#include "mesh/log.h"

namespace velmora {

static const ui_ops no_shell = {
    [](const char*) {},      // prepare
    [] {},                   // reset
    [](int, const char*) {}, // set_status
    [] {},                   // show
    [] {},                   // hide
    [](int) {},              // set_progress
    [] { return 1; },        // pump
    [](const char*) {},      // message
    [] {},                   // before_log
    [] {},                   // after_log
};

static const ui_ops* installed = &no_shell;

void ui_install(const ui_ops* ops)
{
    installed = ops ? ops : &no_shell;
    log_surround(installed->before_log, installed->after_log);
}

void ui_prepare(const char* title)
{
    installed->prepare(title);
}

void ui_reset()
{
    installed->reset();
}

void ui_set_status(int line, const char* text)
{
    installed->set_status(line, text);
}

void ui_show()
{
    installed->show();
}

void ui_hide()
{
    installed->hide();
}

void ui_set_progress(int percent)
{
    installed->set_progress(percent);
}

int ui_pump()
{
    return installed->pump();
}

void ui_message(const char* text)
{
    installed->message(text);
}

} // namespace velmora
