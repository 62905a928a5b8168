// The program with the progress window; without a display it does what the plain one does.
#include "run/driver.h"
#include "shell/app.h"
#include "shell/help.h"
#include "shell/terminal_shell.h"
#include "shell/window_fltk.h"

int main(int argc, char** argv)
{
    const char* text = velmora::asked_text(argc, argv);
    if (text) return velmora::print_asked_text(text);
    velmora::hold_standard_streams();
    const auto window = velmora::connect_fltk_window();
    if (!window) return velmora::run_in_terminal(argc, argv);
    velmora::CVelmoraApp app(window.get(), argc, argv, velmora::velmora_main);
    app.InitInstance();
    return app.ExitInstance() == 0 ? 0 : 255;
}
