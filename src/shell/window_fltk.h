// shell/window_fltk.h - the dialog on an X display, by FLTK.
#pragma once

#include "shell/window.h"

#include <memory>

namespace velmora {

/// A window on the display that DISPLAY names, or null when there is none. One for the process.
/// When the display goes away later the window reports that no event will ever come, and the run
/// goes on without it.
std::unique_ptr<dialog_window> connect_fltk_window();

} // namespace velmora
