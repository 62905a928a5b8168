// The program for a command prompt: the run behind the terminal shell.
#include "shell/help.h"
#include "shell/terminal_shell.h"

int main(int argc, char** argv)
{
    const char* text = velmora::asked_text(argc, argv);
    if (text) return velmora::print_asked_text(text);
    return velmora::run_in_terminal(argc, argv);
}
