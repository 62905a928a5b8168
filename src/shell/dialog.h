// shell/dialog.h - the progress dialog: what its buttons do, and the eight operations of run/ui.h.
//
// The run and the dialog share one thread. A click is handled inside ui_pump, so at a progress call
// of the run; Pause holds the run right there, in a loop of its own, until Resume or Stop.
#pragma once

#include "shell/window.h"

namespace velmora {

/// What the buttons have said. One for the process, as there is one run.
struct dialog_state {
    int run_flag = 1;  ///< cleared by Stop and by nothing else
    int paused = 0;    ///< 1 while Pause holds the run
    int ui_hidden = 0; ///< if set the window is neither shown nor hidden
};

extern dialog_state the_dialog_state;

// The dialog and its methods bear the names that such classes have on Windows.
// NOLINTBEGIN(readability-identifier-naming)

/// The dialog, over a window that it does not own.
class CVelmoraDlg : public click_target {
  public:
    explicit CVelmoraDlg(dialog_window* window) : window_(window)
    {
    }
    ~CVelmoraDlg() override;
    CVelmoraDlg(const CVelmoraDlg&) = delete;
    CVelmoraDlg& operator=(const CVelmoraDlg&) = delete;

    /// Opens the window. Once it is open ui_install has the dialog's operations, until it dies.
    window_result Create();

    void clicked(int id) override;

    void prepare(const char* title);
    void reset();
    void set_status(const char* text);
    void show();
    void hide();
    void set_progress(int percent);
    int pump();
    void message(const char* text);

  private:
    struct message_map_entry {
        int id;
        void (CVelmoraDlg::*handler)();
    };
    static const message_map_entry* GetMessageMap();

    bool OnInitDialog();
    void OnPause();
    void OnResume();
    void OnStop();
    void set_buttons(bool pause, bool resume, bool stop);
    void show_percent(int percent);

    dialog_window* window_;
};

// NOLINTEND(readability-identifier-naming)

} // namespace velmora
