// shell/window_win32.h - the dialog on Windows, from the resources of the program.
#pragma once

#include "shell/window.h"

struct HWND__;

namespace velmora {

class win32_window : public dialog_window {
  public:
    win32_window() = default;
    ~win32_window() override;
    win32_window(const win32_window&) = delete;
    win32_window& operator=(const win32_window&) = delete;

    window_result open(click_target* target) override;
    void set_title(const char* text) override;
    void set_text(int id, const char* text) override;
    void enable(int id, bool on) override;
    void set_bar(int percent) override;
    void show() override;
    void hide() override;
    void handle_pending() override;
    bool wait_for_event() override;
    void message_box(const char* text) override;

    /// A command of the dialog, whoever gave it.
    void command(int id);

  private:
    HWND__* dialog_ = nullptr;
    click_target* target_ = nullptr;
};

} // namespace velmora
