// The program for a command prompt: the run behind the terminal shell.
#include "shell/terminal_shell.h"

int main(int argc, char** argv)
{
    return velmora::run_in_terminal(argc, argv);
}
