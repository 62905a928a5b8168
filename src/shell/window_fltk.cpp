#include "shell/window_fltk.h"

#include <FL/Fl.H>
#include <FL/Fl_Box.H>
#include <FL/Fl_Button.H>
#include <FL/Fl_Double_Window.H>
#include <FL/Fl_Progress.H>
#include <FL/fl_ask.H>
#include <FL/x.H>
#include <X11/Xlib.h>
#include <chrono>
#include <utility>
#include <vector>

namespace velmora {

namespace {

/// Pixels of dialog units and points on a screen of 96 dots per inch, for the font of the dialog
/// where it comes from: 6 pixels wide in the mean and 13 high.
constexpr int to_x(int units)
{
    return (units * 6 + 2) / 4;
}

constexpr int to_y(int units)
{
    return (units * 13 + 4) / 8;
}

constexpr int to_font_size(int points)
{
    return (points * 96 + 36) / 72;
}

#define DIALOG(width, height, points, font)                                                        \
    constexpr int k_width = to_x(width);                                                           \
    constexpr int k_height = to_y(height);                                                         \
    constexpr int k_font_size = to_font_size(points);
#define BUTTON(text, id, x, y, width, height)
#define BAR(text, id, x, y, width, height)
#define LINE(text, id, x, y, width, height)
#include "shell/dialog_template.inc"
#undef DIALOG
#undef BUTTON
#undef BAR
#undef LINE

constexpr int k_bar_max = 100;
constexpr std::chrono::milliseconds k_longest_map{500}; ///< a window may never be shown at all

/// Set when the connection to the display broke; nothing may touch the toolkit afterwards.
bool display_lost = false;

/// A window that knows whether it has been drawn, and where Enter presses the button that has the
/// focus; the other keys of a dialog are FLTK's own.
class top_window : public Fl_Double_Window {
  public:
    using Fl_Double_Window::Fl_Double_Window;

    bool drawn = false;

    void draw() override
    {
        Fl_Double_Window::draw();
        drawn = true;
    }

    int handle(int event) override
    {
        if (event == FL_KEYBOARD && press_focus()) return 1;
        return Fl_Double_Window::handle(event);
    }

  private:
    static bool press_focus()
    {
        const int key = Fl::event_key();
        if (key != FL_Enter && key != FL_KP_Enter) return false;
        Fl_Button* button = dynamic_cast<Fl_Button*>(Fl::focus());
        if (!button || !button->active_r()) return false;
        button->do_callback();
        return true;
    }
};

class fltk_window : public dialog_window {
  public:
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
    /// One control and where its clicks go; the address of the record goes to the toolkit.
    struct control {
        int id;
        Fl_Widget* widget;
        fltk_window* window;
    };

    void make_window();
    void add_button(const char* text, int id, int x, int y, int width, int height);
    void add_bar(const char* text, int id, int x, int y, int width, int height);
    void add_text(const char* text, int id, int x, int y, int width, int height);
    void add(int id, Fl_Widget* widget);
    Fl_Widget* widget_of(int id) const;
    void focus_first_button();
    void tell(int id);
    static void on_button(Fl_Widget*, void* data);
    static void on_close(Fl_Widget*, void* data);

    static constexpr int k_most_controls = 8;

    click_target* target_ = nullptr;
    bool showing_ = false;
    std::vector<int> early_clicks_; ///< that came while the window was being shown
    top_window* window_ = nullptr;  ///< with all its widgets left to the end of the process
    control controls_[k_most_controls] = {};
    int control_count_ = 0;
};

void fltk_window::add(int id, Fl_Widget* widget)
{
    widget->labelsize(k_font_size);
    controls_[control_count_++] = {id, widget, this};
}

void fltk_window::add_button(const char* text, int id, int x, int y, int width, int height)
{
    add(id, new Fl_Button(to_x(x), to_y(y), to_x(width), to_y(height), text));
    controls_[control_count_ - 1].widget->callback(on_button, &controls_[control_count_ - 1]);
}

void fltk_window::add_bar(const char*, int id, int x, int y, int width, int height)
{
    Fl_Progress* bar = new Fl_Progress(to_x(x), to_y(y), to_x(width), to_y(height));
    bar->box(FL_DOWN_BOX);
    bar->selection_color(FL_SELECTION_COLOR);
    bar->maximum(k_bar_max);
    add(id, bar);
}

void fltk_window::add_text(const char* text, int id, int x, int y, int width, int height)
{
    Fl_Box* box = new Fl_Box(to_x(x), to_y(y), to_x(width), to_y(height), text);
    box->align(FL_ALIGN_LEFT | FL_ALIGN_TOP | FL_ALIGN_INSIDE);
    add(id, box);
}

void fltk_window::make_window()
{
    window_ = new top_window(k_width, k_height);
    window_->xclass("velmora");
#define DIALOG(width, height, points, font)
#define BUTTON(text, id, x, y, width, height) add_button(text, id, x, y, width, height);
#define BAR(text, id, x, y, width, height) add_bar(text, id, x, y, width, height);
#define LINE(text, id, x, y, width, height) add_text(text, id, x, y, width, height);
#include "shell/dialog_template.inc"
    window_->end();
    window_->callback(on_close, this);
}

window_result fltk_window::open(click_target* target)
{
    target_ = target;
    if (!window_) make_window();
    return window_result::open;
}

void fltk_window::tell(int id)
{
    if (showing_) early_clicks_.push_back(id);
    if (!showing_) target_->clicked(id);
}

void fltk_window::on_button(Fl_Widget*, void* data)
{
    const control* c = static_cast<const control*>(data);
    c->window->tell(c->id);
}

void fltk_window::on_close(Fl_Widget*, void* data)
{
    static_cast<fltk_window*>(data)->tell(DLG_STOP);
}

Fl_Widget* fltk_window::widget_of(int id) const
{
    for (const control& c : controls_) {
        if (c.id == id) return c.widget;
    }
    return nullptr;
}

void fltk_window::set_title(const char* text)
{
    if (!display_lost) window_->copy_label(text);
}

void fltk_window::set_text(int id, const char* text)
{
    if (!display_lost) widget_of(id)->copy_label(text);
}

void fltk_window::focus_first_button()
{
    for (int i = 0; i < control_count_; ++i) {
        Fl_Widget* widget = controls_[i].widget;
        if (widget->active() && dynamic_cast<Fl_Button*>(widget)) {
            widget->take_focus();
            return;
        }
    }
}

void fltk_window::enable(int id, bool on)
{
    if (display_lost) return;
    Fl_Widget* widget = widget_of(id);
    const bool had_focus = Fl::focus() == widget;
    if (on) widget->activate();
    if (!on) widget->deactivate();
    if (!on && had_focus) focus_first_button();
}

void fltk_window::set_bar(int percent)
{
    if (!display_lost)
        static_cast<Fl_Progress*>(widget_of(DLG_BAR))->value(static_cast<float>(percent));
}

// A window manager may keep the window away, on another desktop say, so the wait has an end.
void fltk_window::show()
{
    if (display_lost) return;
    showing_ = true;
    window_->drawn = false;
    window_->show();
    using clock = std::chrono::steady_clock;
    const clock::time_point end = clock::now() + k_longest_map;
    while (!display_lost && !window_->drawn && clock::now() < end)
        Fl::wait(0.02);
    if (!display_lost) Fl::check();
    showing_ = false;
}

void fltk_window::hide()
{
    if (display_lost) return;
    window_->hide();
    Fl::check();
}

void fltk_window::handle_pending()
{
    const std::vector<int> early = std::exchange(early_clicks_, {});
    for (const int id : early)
        target_->clicked(id);
    if (!display_lost) Fl::check();
}

bool fltk_window::wait_for_event()
{
    if (!display_lost) Fl::wait();
    return !display_lost;
}

void fltk_window::message_box(const char* text)
{
    if (display_lost) return;
    fl_close = "OK";
    fl_message_title("velmora");
    fl_message("%s", text);
}

} // namespace

static void note_lost_display(Display*, void*)
{
    display_lost = true;
}

// The connection is handed to the toolkit, which would end the process if it had to look for one in
// vain. It then leaves the locale and the handlers for errors alone, too.
std::unique_ptr<dialog_window> connect_fltk_window()
{
    Display* display = XOpenDisplay(nullptr);
    if (!display) return nullptr;
    XSetErrorHandler([](Display*, XErrorEvent*) { return 0; });
    XSetIOErrorHandler([](Display*) { return 0; });
    XSetIOErrorExitHandler(display, note_lost_display, nullptr);
    fl_open_display(display);
    return std::make_unique<fltk_window>();
}

} // namespace velmora
