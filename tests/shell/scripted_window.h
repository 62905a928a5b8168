// tests/shell/scripted_window.h - a window whose user follows a script, and that keeps a record.
#pragma once

#include "shell/window.h"

#include <deque>
#include <map>
#include <set>
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

    int bar = -1;
    bool visible = false;
    std::string title;

    /// The enabled buttons, such as "Pause Stop".
    std::string buttons() const
    {
        std::string names;
        const std::pair<int, std::string> all[] = {
            {DLG_PAUSE, "Pause"}, {DLG_RESUME, "Resume"}, {DLG_STOP, "Stop"}};
        for (const auto& [id, name] : all)
            if (enabled_.contains(id)) names += (names.empty() ? "" : " ") + name;
        return names;
    }

    const std::string& text(int id) const
    {
        return texts_.at(id);
    }
    window_result open(click_target* target) override
    {
        target_ = target;
        record.push_back("open");
        if (open_results.empty()) return window_result::open;
        const window_result result = open_results.front();
        open_results.pop_front();
        return result;
    }
    void set_title(const char* text) override
    {
        title = text;
    }
    void set_text(int id, const char* text) override
    {
        texts_[id] = text;
    }
    void enable(int id, bool on) override
    {
        if (on) enabled_.insert(id);
        if (!on) enabled_.erase(id);
    }
    void set_bar(int percent) override
    {
        bar = percent;
    }
    void show() override
    {
        visible = true;
        record.push_back("show");
    }
    void hide() override
    {
        visible = false;
        record.push_back("hide");
    }
    void handle_pending() override
    {
        play_step();
    }
    bool wait_for_event() override
    {
        ++waits;
        if (script.empty()) return false;
        play_step();
        return true;
    }
    void message_box(const char* text) override
    {
        record.push_back(std::string("box: ") + text);
    }

  private:
    void play_step()
    {
        if (script.empty()) return;
        const std::vector<int> clicks = script.front();
        script.pop_front();
        for (const int id : clicks) {
            target_->clicked(id);
            record.push_back("clicked " + std::to_string(id) + ": " + buttons());
        }
    }

    click_target* target_ = nullptr;
    std::map<int, std::string> texts_;
    std::set<int> enabled_;
};

} // namespace velmora
