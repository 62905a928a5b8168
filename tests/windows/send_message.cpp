// tests/windows/send_message.cpp - sends a message to the window of another program.
//
//     send_message TITLE command ID    the click of a button
//     send_message TITLE close
//     send_message TITLE hide
//     send_message TITLE text          writes the text of a message box to the standard output
//
// Ends with 1 when there is no such window, with 2 when nobody answers.
#define WIN32_LEAN_AND_MEAN
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <windows.h>

static constexpr int k_tries = 200;
static constexpr DWORD k_between_tries_ms = 50;
static constexpr UINT k_patience_ms = 20000;

static HWND find_window(const char* title)
{
    for (int i = 0; i < k_tries; ++i) {
        const HWND window = FindWindowA(nullptr, title);
        if (window) return window;
        Sleep(k_between_tries_ms);
    }
    return nullptr;
}

// Says so before, since the answer may take its time.
static bool send(HWND window, UINT message, WPARAM wparam)
{
    std::printf("sending\n");
    std::fflush(stdout);
    DWORD_PTR answer = 0;
    return SendMessageTimeoutA(window, message, wparam, 0, SMTO_NORMAL, k_patience_ms, &answer) !=
           0;
}

static void write_text(HWND box)
{
    char text[512] = "";
    GetDlgItemTextA(box, 0xFFFF, text, sizeof text); // what a message box gives its text for an id
    std::printf("%s\n", text);
}

int main(int argc, char** argv)
{
    const HWND window = argc > 2 ? find_window(argv[1]) : nullptr;
    if (!window) return 1;
    bool answered = true;
    if (std::strcmp(argv[2], "command") == 0 && argc > 3) {
        const int id = std::atoi(argv[3]);
        answered = send(window, WM_COMMAND, MAKEWPARAM(id, BN_CLICKED));
    } else if (std::strcmp(argv[2], "close") == 0) {
        answered = send(window, WM_CLOSE, 0);
    } else if (std::strcmp(argv[2], "hide") == 0) {
        ShowWindow(window, SW_HIDE);
    } else if (std::strcmp(argv[2], "text") == 0) {
        write_text(window);
    }
    return answered ? 0 : 2;
}
