#include "shell/window_win32.h"

#include <initializer_list>

// The second header needs the first.
// clang-format off
#define WIN32_LEAN_AND_MEAN
#include <windows.h>
#include <commctrl.h>
// clang-format on

namespace velmora {

namespace {

/// A text as the system takes it, cut where it is too long for any place in the dialog.
struct wide_text {
    wchar_t text[1024];

    explicit wide_text(const char* utf8)
    {
        constexpr int k_room = static_cast<int>(sizeof text / sizeof text[0]);
        if (MultiByteToWideChar(CP_UTF8, 0, utf8, -1, text, k_room) == 0) text[k_room - 1] = L'\0';
    }
};

INT_PTR CALLBACK dialog_proc(HWND dialog, UINT message, WPARAM wparam, LPARAM lparam)
{
    if (message == WM_INITDIALOG) {
        SetWindowLongPtrW(dialog, DWLP_USER, lparam);
        return TRUE; // the first button has the focus
    }
    auto* window = reinterpret_cast<win32_window*>(GetWindowLongPtrW(dialog, DWLP_USER));
    if (!window) return FALSE;
    if (message == WM_COMMAND && HIWORD(wparam) == BN_CLICKED) {
        window->command(LOWORD(wparam));
        return TRUE;
    }
    if (message == WM_CLOSE) {
        window->command(DLG_STOP);
        return TRUE;
    }
    return FALSE;
}

// What is short may be there again soon; all else, a session without a screen say, stays as it is.
window_result reason_of_failure()
{
    switch (GetLastError()) {
    case ERROR_NOT_ENOUGH_MEMORY:
    case ERROR_OUTOFMEMORY:
    case ERROR_NO_MORE_USER_HANDLES:
    case ERROR_NO_SYSTEM_RESOURCES:
    case ERROR_COMMITMENT_LIMIT:
        return window_result::not_now;
    default:
        return window_result::never;
    }
}

HWND first_enabled_button(HWND dialog)
{
    for (const int id : {DLG_PAUSE, DLG_RESUME, DLG_STOP}) {
        const HWND button = GetDlgItem(dialog, id);
        if (IsWindowEnabled(button)) return button;
    }
    return nullptr;
}

} // namespace

win32_window::~win32_window()
{
    if (dialog_) DestroyWindow(dialog_);
}

window_result win32_window::open(click_target* target)
{
    const INITCOMMONCONTROLSEX controls = {sizeof controls, ICC_PROGRESS_CLASS};
    InitCommonControlsEx(&controls);
    // The window of a program that is busy must still take clicks, which wait for the next look.
    DisableProcessWindowsGhosting();
    target_ = target;
    dialog_ = CreateDialogParamW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(DLG_TEMPLATE), nullptr,
                                 dialog_proc, reinterpret_cast<LPARAM>(this));
    return dialog_ ? window_result::open : reason_of_failure();
}

// The sender of a message waits for its answer, and would wait through a whole pause. A loop that
// waits for the next message does not see those that were sent, so one is posted behind them.
void win32_window::command(int id)
{
    if (id == IDCANCEL) id = DLG_STOP;
    if (id == IDOK) id = GetDlgCtrlID(GetFocus());
    if (InSendMessage()) ReplyMessage(0);
    target_->clicked(id);
    PostMessageW(dialog_, WM_NULL, 0, 0);
}

void win32_window::set_title(const char* text)
{
    SetWindowTextW(dialog_, wide_text(text).text);
}

void win32_window::set_text(int id, const char* text)
{
    SetDlgItemTextW(dialog_, id, wide_text(text).text);
}

void win32_window::enable(int id, bool on)
{
    const HWND button = GetDlgItem(dialog_, id);
    const bool had_focus = GetFocus() == button;
    EnableWindow(button, on);
    if (on || !had_focus) return;
    const HWND next = first_enabled_button(dialog_);
    if (next) SendMessageW(dialog_, WM_NEXTDLGCTL, reinterpret_cast<WPARAM>(next), TRUE);
}

void win32_window::set_bar(int percent)
{
    SendDlgItemMessageW(dialog_, DLG_BAR, PBM_SETPOS, static_cast<WPARAM>(percent), 0);
}

void win32_window::show()
{
    ShowWindow(dialog_, SW_SHOW);
    RedrawWindow(dialog_, nullptr, nullptr, RDW_INVALIDATE | RDW_UPDATENOW | RDW_ALLCHILDREN);
}

void win32_window::hide()
{
    ShowWindow(dialog_, SW_HIDE);
}

static void dispatch(HWND dialog, MSG* message)
{
    if (IsDialogMessageW(dialog, message)) return;
    TranslateMessage(message);
    DispatchMessageW(message);
}

void win32_window::handle_pending()
{
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
        dispatch(dialog_, &message);
}

bool win32_window::wait_for_event()
{
    MSG message;
    if (GetMessageW(&message, nullptr, 0, 0) <= 0) return false;
    dispatch(dialog_, &message);
    return true;
}

// A box that belonged to a hidden window would not show on the task bar.
void win32_window::message_box(const char* text)
{
    const HWND owner = IsWindowVisible(dialog_) ? dialog_ : nullptr;
    MessageBoxW(owner, wide_text(text).text, L"velmora", MB_OK);
}

} // namespace velmora
