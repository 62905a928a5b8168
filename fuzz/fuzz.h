// fuzz/fuzz.h - what the fuzz targets share: their entry, their verdict, files in memory.
//
// A target gets bytes that nobody has looked at and must come back from them. It ends the process
// when something that it demands does not hold; crashes and what the sanitizers find do the same.
// Each target is built twice: with libFuzzer, which makes up the bytes, and with a small main that
// replays the kept ones.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace velmora {

/// Ends the process with `what` unless it holds.
void demand(bool holds, const char* what);

/// A file without a place on any disk, gone with this object.
class memory_file {
  public:
    memory_file(const std::uint8_t* data, std::size_t size);
    ~memory_file();
    memory_file(const memory_file&) = delete;
    memory_file& operator=(const memory_file&) = delete;

    /// A name by which it can be opened.
    const char* path() const
    {
        return path_;
    }

    /// A new handle; the caller closes it.
    std::FILE* open(const char* mode) const;

    /// What is in it now.
    std::string bytes() const;

  private:
    int number_;
    char path_[32];
};

/// While it lives, what is logged is kept instead of shown.
class kept_log {
  public:
    kept_log();
    ~kept_log();
    kept_log(const kept_log&) = delete;
    kept_log& operator=(const kept_log&) = delete;

    /// All that was logged so far.
    const std::string& text() const
    {
        return text_;
    }

  private:
    std::FILE* shown_;
    std::string text_;
};

/// While it lives, the standard input holds `data` and the standard output goes nowhere. The run
/// may close both.
class own_streams {
  public:
    own_streams(const std::uint8_t* data, std::size_t size);
    ~own_streams();
    own_streams(const own_streams&) = delete;
    own_streams& operator=(const own_streams&) = delete;

    /// What was written to the standard output so far, as far as it left the buffers.
    std::string out() const
    {
        return output_.bytes();
    }

  private:
    memory_file input_;
    memory_file output_;
    std::FILE* outer_in_;
    std::FILE* outer_out_;
    int in_number_;
    int out_number_;
};

/// Makes an empty folder in memory the current one, once for the process; it goes with it.
void enter_own_folder();

/// All files of the current folder are removed.
void empty_own_folder();

void write_file(const char* name, const std::string& bytes);

/// "" for a file that is not there.
std::string read_file(const char* name);

} // namespace velmora
