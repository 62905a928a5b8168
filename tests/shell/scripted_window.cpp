#include "shell/scripted_window.h"

namespace velmora {

std::string scripted_window::buttons() const
{
    std::string names;
    const std::pair<int, const char*> all[] = {
        {DLG_PAUSE, "Pause"}, {DLG_RESUME, "Resume"}, {DLG_STOP, "Stop"}};
    for (const auto& [id, name] : all) {
        const auto found = enabled_.find(id);
        if (found == enabled_.end() || !found->second) continue;
        if (!names.empty()) names += " ";
        names += name;
    }
    return names;
}

const std::string& scripted_window::text(int id) const
{
    return texts_.at(id);
}

window_result scripted_window::open(click_target* target)
{
    target_ = target;
    record.push_back("open");
    if (open_results.empty()) return window_result::open;
    const window_result result = open_results.front();
    open_results.pop_front();
    return result;
}

void scripted_window::set_title(const char* text)
{
    title = text;
}

void scripted_window::set_text(int id, const char* text)
{
    texts_[id] = text;
}

void scripted_window::enable(int id, bool on)
{
    enabled_[id] = on;
}

void scripted_window::set_bar(int percent)
{
    bar = percent;
}

void scripted_window::show()
{
    visible = true;
    record.push_back("show");
}

void scripted_window::hide()
{
    visible = false;
    record.push_back("hide");
}

void scripted_window::play_step()
{
    if (script.empty()) return;
    const std::vector<int> clicks = script.front();
    script.pop_front();
    for (const int id : clicks) {
        target_->clicked(id);
        record.push_back("clicked " + std::to_string(id) + ": " + buttons());
    }
}

void scripted_window::handle_pending()
{
    play_step();
}

bool scripted_window::wait_for_event()
{
    ++waits;
    if (script.empty()) return false;
    play_step();
    return true;
}

void scripted_window::message_box(const char* text)
{
    record.push_back(std::string("box: ") + text);
}

} // namespace velmora
