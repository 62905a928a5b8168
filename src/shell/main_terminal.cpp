// The program for a command prompt: the run behind the terminal shell.
#include "run/driver.h"
#include "shell/terminal_shell.h"

int main(int argc, char** argv)
{
    // The run speaks under its own name, by whatever path it was started.
    static char name[] = "velmora";
    char* lone_name[] = {name, nullptr};
    if (argc < 1) {
        argc = 1;
        argv = lone_name;
    }
    argv[0] = name;

    velmora::terminal_shell_start();
    const int result = velmora::velmora_main(argc, argv);
    velmora::terminal_shell_end();
    return result == 0 ? 0 : 255;
}
