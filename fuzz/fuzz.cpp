#include "fuzz.h"

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
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

// With VELMORA_FUZZ_SHOW set the log is shown as it comes, for whoever looks into a finding.
static ssize_t keep_text(void* text, const char* bytes, std::size_t size)
{
    static const bool shown = std::getenv("VELMORA_FUZZ_SHOW") != nullptr;
    static_cast<std::string*>(text)->append(bytes, size);
    return shown ? write(STDERR_FILENO, bytes, size) : static_cast<ssize_t>(size);
}

kept_log::kept_log() : shown_(stderr)
{
    stderr = fopencookie(&text_, "w", {nullptr, keep_text, nullptr, nullptr});
    demand(stderr != nullptr, "a log in memory");
    std::setbuf(stderr, nullptr);
}

kept_log::~kept_log()
{
    std::fclose(stderr);
    stderr = shown_;
}

own_streams::own_streams(const std::uint8_t* data, std::size_t size)
    : input_(data, size), output_(nullptr, 0), outer_in_(stdin), outer_out_(stdout)
{
    stdin = input_.open("rb");
    stdout = output_.open("wb");
    in_number_ = fileno(stdin);
    out_number_ = fileno(stdout);
}

static void close_unless_closed(std::FILE* file, int number)
{
    if (fcntl(number, F_GETFD) != -1) std::fclose(file);
}

own_streams::~own_streams()
{
    close_unless_closed(stdin, in_number_);
    close_unless_closed(stdout, out_number_);
    stdin = outer_in_;
    stdout = outer_out_;
}

static std::string own_folder;

void enter_own_folder()
{
    if (!own_folder.empty()) return;
    own_folder = access("/dev/shm", W_OK) == 0 ? "/dev/shm/velmora-XXXXXX" : "/tmp/velmora-XXXXXX";
    demand(mkdtemp(own_folder.data()) != nullptr, "a folder");
    demand(chdir(own_folder.c_str()) == 0, "a way into the folder");
    std::atexit([] {
        std::error_code ignored;
        std::filesystem::remove_all(own_folder, ignored);
    });
}

// Not a step without being where this is meant to happen.
void empty_own_folder()
{
    demand(std::filesystem::current_path() == own_folder, "the own folder");
    for (const auto& entry : std::filesystem::directory_iterator("."))
        std::filesystem::remove_all(entry.path());
}

void write_file(const char* name, const std::string& bytes)
{
    std::ofstream(name, std::ios::binary) << bytes;
}

std::string read_file(const char* name)
{
    std::ifstream file(name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

} // namespace velmora
