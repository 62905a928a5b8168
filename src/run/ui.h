// run/ui.h - what a run needs of whoever shows it: eight operations, and room for the log.
//
// The run calls the functions below and knows no shell. A shell installs its own set of operations
// before the run starts; without one nothing is shown and nobody presses Stop. All calls come from
// the one thread of the run.
#pragma once

namespace velmora {

/// A shell's operations. Every pointer is set.
struct ui_ops {
    void (*prepare)(const char* title);
    void (*reset)();
    void (*set_status)(int line, const char* text);
    void (*show)();
    void (*hide)();
    void (*set_progress)(int percent);
    int (*pump)();
    void (*message)(const char* text);
    void (*before_log)();
    void (*after_log)();
};

/// Puts `ops` behind the functions below and round the log; it must outlive the run. Null goes back
/// to no shell.
void ui_install(const ui_ops* ops);

/// Sets the title unless it is null, and gets ready for a job that can be paused and stopped.
void ui_prepare(const char* title);

/// Back to 0 percent, and ready as after ui_prepare.
void ui_reset();

/// Sets the status line. There is one, whatever the number `line`.
void ui_set_status(int line, const char* text);

void ui_show();
void ui_hide();

/// Shows how far the run has come.
void ui_set_progress(int percent);

/// Handles what the user has done since the last call, without waiting.
/// @return 1 while the run may go on, 0 once Stop was asked for
int ui_pump();

/// Tells `text` and waits until it was noticed, where a shell can do that.
void ui_message(const char* text);

} // namespace velmora
