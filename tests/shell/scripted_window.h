// tests/shell/scripted_window.h - a window whose user follows a script, and that keeps a record.
#pragma once

#include "shell/window.h"

#include <deque>
#include <map>
#include <string>
#include <vector>

namespace velmora {

class scripted_window : public dialog_window {
  public:
    /// Each step is what has happened when the dialog looks next: any number of clicks. A wait for
    /// an event takes one step as well; at the end of the script no event will ever come.
    std::deque<std::vector<int>> script;

    std::deque<window_result> open_results; ///< none left: open
    std::vector<std::string> record;        ///< what was done, in words
    int waits = 0;                          ///< calls of wait_for_event

    /// The enabled buttons, such as "Pause Stop".
    std::string buttons() const;
    const std::string& text(int id) const;
    int bar = -1;
    bool visible = false;
    std::string title;

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

  private:
    void play_step();

    click_target* target_ = nullptr;
    std::map<int, std::string> texts_;
    std::map<int, bool> enabled_;
};

} // namespace velmora
