#include "files/os_file.h"

#define WIN32_LEAN_AND_MEAN
#include <cerrno>
#include <fcntl.h>
#include <io.h>
#include <windows.h>

namespace velmora {

namespace {

/// A name as the system takes it; empty, with errno set, when it is too long or no UTF-8.
struct wide_name {
    wchar_t text[1024];

    explicit wide_name(const char* name)
    {
        const int size = static_cast<int>(sizeof text / sizeof text[0]);
        if (MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, name, -1, text, size) > 0) return;
        text[0] = L'\0';
        errno = ENOENT;
    }
};

/// How a mode of fopen reads in the system's words.
struct open_words {
    DWORD access;
    DWORD disposition;
    int crt_flags;
};

constexpr DWORD k_share_all = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

open_words words_of(const char* mode)
{
    switch (mode[0]) {
    case 'r':
        return {GENERIC_READ, OPEN_EXISTING, _O_RDONLY | _O_BINARY};
    case 'w':
        return {GENERIC_WRITE, CREATE_ALWAYS, _O_WRONLY | _O_BINARY};
    default:
        return {GENERIC_READ | GENERIC_WRITE, OPEN_ALWAYS, _O_RDWR | _O_APPEND | _O_BINARY};
    }
}

void set_errno_from_system()
{
    switch (GetLastError()) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_NAME:
    case ERROR_INVALID_DRIVE:
    case ERROR_BAD_PATHNAME:
    case ERROR_BAD_NETPATH:
    case ERROR_FILENAME_EXCED_RANGE:
        errno = ENOENT;
        break;
    case ERROR_TOO_MANY_OPEN_FILES:
        errno = EMFILE;
        break;
    case ERROR_FILE_EXISTS:
    case ERROR_ALREADY_EXISTS:
        errno = EEXIST;
        break;
    case ERROR_DISK_FULL:
        errno = ENOSPC;
        break;
    case ERROR_NOT_ENOUGH_MEMORY:
    case ERROR_OUTOFMEMORY:
        errno = ENOMEM;
        break;
    default:
        errno = EACCES;
        break;
    }
}

std::FILE* stream_of(HANDLE file, const open_words& words, const char* mode)
{
    const int number = _open_osfhandle(reinterpret_cast<std::intptr_t>(file), words.crt_flags);
    if (number < 0) {
        CloseHandle(file);
        return nullptr;
    }
    std::FILE* stream = _fdopen(number, mode);
    if (!stream) _close(number);
    return stream;
}

HANDLE system_handle(std::FILE* handle)
{
    return reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(handle)));
}

bool is_on_disk(HANDLE file, BY_HANDLE_FILE_INFORMATION* about)
{
    return GetFileType(file) == FILE_TYPE_DISK && GetFileInformationByHandle(file, about);
}

} // namespace

// The C library would open the file so that it can't be renamed while it is open.
std::FILE* os_open(const char* name, const char* mode)
{
    const wide_name wide(name);
    if (wide.text[0] == L'\0') return nullptr;
    const open_words words = words_of(mode);
    const HANDLE file = CreateFileW(wide.text, words.access, k_share_all, nullptr,
                                    words.disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        set_errno_from_system();
        return nullptr;
    }
    return stream_of(file, words, mode);
}

std::FILE* os_second_handle(std::FILE* handle)
{
    const int number = _dup(_fileno(handle));
    std::FILE* second = number < 0 ? nullptr : _fdopen(number, "rb");
    if (number >= 0 && !second) _close(number);
    return second;
}

bool os_rename(const char* from, const char* to)
{
    const wide_name wide_from(from);
    const wide_name wide_to(to);
    if (MoveFileExW(wide_from.text, wide_to.text, MOVEFILE_REPLACE_EXISTING)) return true;
    set_errno_from_system();
    return false;
}

bool is_same_file(const char* name, std::FILE* handle)
{
    BY_HANDLE_FILE_INFORMATION opened;
    BY_HANDLE_FILE_INFORMATION named;
    if (!handle || !is_on_disk(system_handle(handle), &opened)) return false;
    const HANDLE file = CreateFileW(wide_name(name).text, 0, k_share_all, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    const bool known = is_on_disk(file, &named);
    CloseHandle(file);
    return known && opened.dwVolumeSerialNumber == named.dwVolumeSerialNumber &&
           opened.nFileIndexHigh == named.nFileIndexHigh &&
           opened.nFileIndexLow == named.nFileIndexLow;
}

bool is_regular_file(std::FILE* handle, std::uint64_t* size)
{
    BY_HANDLE_FILE_INFORMATION about;
    if (!is_on_disk(system_handle(handle), &about)) return false;
    if (about.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) return false;
    if (size) *size = (std::uint64_t{about.nFileSizeHigh} << 32) | about.nFileSizeLow;
    return true;
}

} // namespace velmora
