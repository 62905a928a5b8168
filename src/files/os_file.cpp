#include "files/os_file.h"

#include <sys/stat.h>
#include <unistd.h>

namespace velmora {

std::FILE* os_open(const char* name, const char* mode)
{
    return std::fopen(name, mode);
}

std::FILE* os_second_handle(std::FILE* handle)
{
    const int number = dup(fileno(handle));
    std::FILE* second = number < 0 ? nullptr : fdopen(number, "rb");
    if (number >= 0 && !second) close(number);
    return second;
}

bool os_rename(const char* from, const char* to)
{
    return std::rename(from, to) == 0;
}

static bool has_content(const struct stat& status)
{
    return S_ISREG(status.st_mode) || S_ISBLK(status.st_mode);
}

bool is_same_file(const char* name, std::FILE* handle)
{
    struct stat named;
    struct stat opened;
    if (!handle || stat(name, &named) != 0 || fstat(fileno(handle), &opened) != 0) return false;
    return has_content(opened) && named.st_dev == opened.st_dev && named.st_ino == opened.st_ino;
}

bool is_regular_file(std::FILE* handle, std::uint64_t* size)
{
    struct stat status;
    if (fstat(fileno(handle), &status) != 0 || !S_ISREG(status.st_mode)) return false;
    if (size) *size = static_cast<std::uint64_t>(status.st_size);
    return true;
}

} // namespace velmora
