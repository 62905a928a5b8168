#include "fuzz.h"

#include <cstdlib>
#include <sys/mman.h>
#include <unistd.h>

namespace velmora {

void demand(bool holds, const char* what)
{
    if (holds) return;
    const std::string line = std::string("DEMAND FAILED: ") + what + "\n";
    if (write(STDERR_FILENO, line.data(), line.size()) < 0) std::abort();
    std::abort();
}

memory_file::memory_file(const std::uint8_t* data, std::size_t size)
    : number_(memfd_create("velmora-fuzz", 0)), path_()
{
    demand(number_ >= 0, "a file in memory");
    demand(pwrite(number_, data, size, 0) == static_cast<ssize_t>(size), "its bytes");
    std::snprintf(path_, sizeof path_, "/proc/self/fd/%d", number_);
}

memory_file::~memory_file()
{
    close(number_);
}

std::FILE* memory_file::open(const char* mode) const
{
    std::FILE* file = std::fopen(path_, mode);
    demand(file != nullptr, "a handle on a file in memory");
    return file;
}

std::string memory_file::bytes() const
{
    const off_t size = lseek(number_, 0, SEEK_END);
    std::string all(static_cast<std::size_t>(size), '\0');
    demand(pread(number_, all.data(), all.size(), 0) == size, "the bytes of a file in memory");
    return all;
}

kept_log::kept_log() : shown_(stderr)
{
    stderr = open_memstream(&text_, &size_);
    demand(stderr != nullptr, "a log in memory");
}

kept_log::~kept_log()
{
    std::fclose(stderr);
    stderr = shown_;
    std::free(text_);
}

std::string kept_log::text() const
{
    std::fflush(stderr);
    return {text_, size_};
}

bool kept_log::holds(const char* text) const
{
    return this->text().find(text) != std::string::npos;
}

} // namespace velmora
