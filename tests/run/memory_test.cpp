// Whole runs in which one allocation fails, each in turn.
#include "mesh/memory.h"
#include "run/driver.h"

#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace velmora {

namespace fs = std::filesystem;

namespace {

// What a run in a process of its own ends with, besides 0 and 1 for the two results.
constexpr int k_past_the_end = 99; ///< it took fewer allocations
constexpr int k_not_all_back = 98; ///< it kept memory
constexpr int k_file_open = 97;    ///< it kept a file open
constexpr int k_no_start = 96;

struct memory_case {
    const char* options;
    const char* in;
    const char* out;
};

// Each mode, thin repair, each form of both files, in place, and through pipes.
const memory_case cases[] = {
    {"-f in.astl -o out.stl -e gone -q 1", "in.astl", "out.stl"},
    {"-f in.stl -o out.astl -j 1.2 -g 1 -q 2", "in.stl", "out.astl"},
    {"-f in.kvd -o out.kvd -e gone -i 3 -g 1 -q 3", "in.kvd", "out.kvd"},
    {"-f in.stl -o out.stl -e gone -q 4 -a 35", "in.stl", "out.stl"},
    {"-f in.kvd -o out.astl -S -P -h 0.5 -q 2", "in.kvd", "out.astl"},
    {"-f in.stl -o = -q 1", "in.stl", "in.stl"},
    {"-f in.kvd -o = -q 4 -a 20", "in.kvd", "in.kvd"},
    {"-F m -O m -q 1", "in.kvd", "stdout"},
};

/// Runs in a folder of its own.
class memory : public ::testing::Test {
  protected:
    memory()
    {
        std::string pattern = fs::temp_directory_path() / "memory_test_XXXXXX";
        dir = mkdtemp(pattern.data());
        write("in.astl", model());
        write("in.kvd", "");
        EXPECT_EQ(run("-f in.astl -o in.stl -q 9", UINT64_MAX), k_past_the_end);
        EXPECT_EQ(run("-f in.astl -o in.kvd -q 4", UINT64_MAX), k_past_the_end);
    }
    ~memory() override
    {
        fs::remove_all(dir);
    }

    /// A pyramid on a square of four triangles, and some more triangles of its corners: edges with
    /// one user and with many, two sheets that meet in a point, corners that coincide.
    static std::string model()
    {
        const char* const corners[] = {"0 0 0", "2 0 0", "2 2 0", "0 2 0"};
        std::string text = "solid\n";
        for (int i = 0; i < 4; ++i) {
            const std::string a = corners[i];
            const std::string b = corners[(i + 1) % 4];
            text += facet(a, b, "1 1 1") + facet(b, a, "1 1 0");
        }
        text += facet("0 0 0", "2 0 0", "1 -1 1") + facet("2 0 0", "3 0 0", "3 1 0");
        text += facet("3 0 0", "2 0 0", "3 -1 0") + facet("2 0 0", "3 1 0", "2 1 3");
        text += facet("9 0 0", "9 9 0", "9 4 0.01") + facet("9 9 0", "9 0 0", "9 4 -0.01");
        return text + facet("0 0 0", "0 0 0", "1 1 1") + "endsolid\n";
    }
    static std::string facet(const std::string& a, const std::string& b, const std::string& c)
    {
        return "facet normal 0 0 0\nouter loop\nvertex " + a + "\nvertex " + b + "\nvertex " + c +
               "\nendloop\nendfacet\n";
    }

    static int run_words(const std::string& options)
    {
        std::istringstream line("velmora " + options + " -r 0.5 -c 0.5");
        std::vector<std::string> words(std::istream_iterator<std::string>(line), {});
        std::vector<char*> argv;
        for (std::string& word : words)
            argv.push_back(word.data());
        argv.push_back(nullptr);
        return velmora_main(static_cast<int>(words.size()), argv.data());
    }

    static int first_free_file()
    {
        const int number = fcntl(STDERR_FILENO, F_DUPFD, 3);
        close(number);
        return number;
    }

    [[noreturn]] void run_here(const std::string& options, std::uint64_t nth) const
    {
        fs::current_path(dir);
        if (!std::freopen("log", "wb", stderr) || !std::freopen("in.kvd", "rb", stdin) ||
            !std::freopen("stdout", "wb", stdout))
            _exit(k_no_start);
        std::setvbuf(stderr, nullptr, _IONBF, 0);
        alarm(20);
        const std::uint64_t blocks = heap_blocks();
        const int free_file = first_free_file();
        heap_fail_nth(nth);
        const int result = run_words(options);
        if (heap_blocks() != blocks) _exit(k_not_all_back);
        if (first_free_file() != free_file) _exit(k_file_open);
        _exit(heap_calls() < nth ? k_past_the_end : result == 0 ? 0 : 1);
    }

    /// The exit status, or -1 when a signal ended it.
    int run(const std::string& options, std::uint64_t nth) const
    {
        const pid_t child = fork();
        if (child == 0) run_here(options, nth);
        int status = 0;
        waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    void write(const char* name, const std::string& bytes) const
    {
        std::ofstream(dir / name, std::ios::binary) << bytes;
    }
    std::string read(const std::string& name) const
    {
        std::ifstream file(dir / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    bool log_holds(const char* text) const
    {
        return read("log").find(text) != std::string::npos;
    }
    bool log_tells_a_failure() const
    {
        for (const char* text :
             {"memory exhausted.\n", "memory end\n", "no more memory", "error number 0.\n",
              "output error\n", "unable to allocate", "failed to initialize"})
            if (log_holds(text)) return true;
        return false;
    }

    fs::path dir;
};

} // namespace

// A failure that costs nothing is no failure: the output is then the usual one.
TEST_F(memory, runs_out_with_a_word_and_without_harm)
{
    std::uint64_t walked = 0;
    for (const memory_case& c : cases) {
        SCOPED_TRACE(c.options);
        const std::string input = read(c.in);
        ASSERT_FALSE(input.empty());
        ASSERT_EQ(run(c.options, UINT64_MAX), k_past_the_end);
        const std::string usual = read(c.out);
        ASSERT_FALSE(usual.empty());
        std::uint64_t nth = 1;
        for (int status = 0; status != k_past_the_end; ++nth) {
            fs::remove(dir / c.out);
            fs::remove(dir / (c.in + std::string("~")));
            write(c.in, input);
            status = run(c.options, nth);
            ASSERT_TRUE(status == 0 || status == 1 || status == k_past_the_end)
                << status << ' ' << nth;
            const bool finished = log_holds("wrote output file") && !log_holds("output error");
            ASSERT_TRUE(log_tells_a_failure() || (finished && read(c.out) == usual))
                << nth << read("log");
            ASSERT_TRUE(read(c.in) == input || read(c.in + std::string("~")) == input) << nth;
        }
        EXPECT_GT(nth, 20u);
        walked += nth - 1;
        write(c.in, input);
    }
    RecordProperty("failures_walked", std::to_string(walked));
    std::printf("%d failures walked\n", static_cast<int>(walked));
}

// As if the program had been started anew.
TEST_F(memory, of_one_run_is_lost_on_the_next)
{
    std::string sheet = "solid\n";
    for (int i = 0; i < 16; ++i) {
        const auto at = [&](int dx, int dy) {
            return std::to_string(i / 4 + dx) + " " + std::to_string(i % 4 + dy) + " 0";
        };
        sheet += facet(at(0, 0), at(1, 0), at(1, 1)) + facet(at(0, 0), at(1, 1), at(0, 1));
    }
    write("in.astl", sheet + "endsolid\n");
    const pid_t child = fork();
    if (child == 0) {
        fs::current_path(dir);
        for (const char* name : {"first", "second"})
            if (run_words(std::string("-f in.astl -e gone -q 4 -a 60 -o ") + name) != 0) _exit(1);
        _exit(0);
    }
    int status = 1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_FALSE(read("gone.astl").empty()) << "something was removed";
    EXPECT_EQ(read("first.astl"), read("second.astl"));
}

} // namespace velmora
