// shell/window.h - what the progress dialog needs of a window system, and nothing more.
//
// What the dialog does stands in dialog.h; a window only shows it and tells of clicks. One class
// behind this interface is all that a further window system takes. Everything happens on one
// thread: clicks are told from inside handle_pending and wait_for_event and from nowhere else.
// Texts are UTF-8.
#pragma once

#include "shell/dialog_ids.h"

namespace velmora {

/// Who is told of clicks.
class click_target {
  public:
    virtual ~click_target() = default;

    /// The button `id` was clicked, by mouse or by key. May itself wait for further events.
    virtual void clicked(int id) = 0;
};

enum class window_result {
    open,
    not_now, ///< something is short that may be there in a moment
    never,   ///< there is nothing to show a window on
};

/// The dialog of dialog_template.inc on some screen. Nothing but `open` may fail: a window that got
/// lost on the way does nothing and reports no events.
class dialog_window {
  public:
    virtual ~dialog_window() = default;

    /// Makes the window, hidden. Clicks go to `target`, which outlives the window; closing it is a
    /// click on Stop, Enter one on the button that has the focus.
    virtual window_result open(click_target* target) = 0;

    virtual void set_title(const char* text) = 0;
    virtual void set_text(int id, const char* text) = 0;

    /// A button that is disabled while it has the focus hands it to the first enabled one.
    virtual void enable(int id, bool on) = 0;

    /// @param percent  0 to 100
    virtual void set_bar(int percent) = 0;

    /// On the screen, and drawn, when this returns.
    virtual void show() = 0;
    virtual void hide() = 0;

    /// Handles all that has happened up to now, without waiting.
    virtual void handle_pending() = 0;

    /// Sleeps until something happens, and handles it. Returns after each click, however it came.
    /// @return false when nothing will ever come
    virtual bool wait_for_event() = 0;

    /// Shows `text` in a box of its own until the user has seen it.
    virtual void message_box(const char* text) = 0;
};

} // namespace velmora
