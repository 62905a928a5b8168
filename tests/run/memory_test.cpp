// Whole runs in which one allocation fails, each in turn.
#include "mesh/memory.h"
#include "run/driver.h"
#include "temp_folder.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
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

struct memory_case {
    const char* options;
    const char* in;
    const char* out;
};

// Each mode, thin repair, each form of both files, in place, and through pipes; a tolerance that
// makes two places close, and one that makes a chain of all; boxes that overlap so much that cells
// of the tree stay folded.
const memory_case cases[] = {
    {"-f in.astl -o out.stl -e gone -q 1", "in.astl", "out.stl"},
    {"-f in.stl -o out.astl -j 1.2 -g 1 -q 2", "in.stl", "out.astl"},
    {"-f in.kvd -o out.kvd -e gone -i 3 -g 1 -q 3", "in.kvd", "out.kvd"},
    {"-f in.stl -o out.stl -e gone -q 4 -a 35", "in.stl", "out.stl"},
    {"-f in.kvd -o out.astl -S -P -h 0.5 -q 2", "in.kvd", "out.astl"},
    {"-f in.stl -o = -q 1", "in.stl", "in.stl"},
    {"-f in.kvd -o = -q 4 -a 20", "in.kvd", "in.kvd"},
    {"-F m -O m -q 1", "in.kvd", "stdout"},
    {"-f in.stl -o out.stl -m 0.03 -q 1", "in.stl", "out.stl"},
    {"-f in.stl -o out.stl -m 1.1 -q 1", "in.stl", "out.stl"},
    {"-f pages.astl -o out.stl -q 1", "pages.astl", "out.stl"},
    {"-f pages.astl -o out.stl -q 2 -S -h 0.2 -m 1.5", "pages.astl", "out.stl"},
};

// Thousands of files are emptied and written again, which a disk would feel.
fs::path quick_place()
{
    const fs::path shm = "/dev/shm";
    return access(shm.c_str(), W_OK) == 0 ? shm : fs::temp_directory_path();
}

class memory : public ::testing::Test, public temp_folder {
  protected:
    memory() : temp_folder(quick_place())
    {
        write("in.astl", model());
        write("pages.astl", pages());
        write("in.kvd", "");
        apart([this] {
            run("-f in.astl -o in.stl -q 9", 0);
            run("-f in.astl -o in.kvd -q 4", 0);
        });
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
    /// Hundreds of triangles over a few edges, with corners all over the room.
    static std::string pages()
    {
        std::string text = "solid\n";
        for (int i = 0; i < 160; ++i) {
            const auto steps = [i](int n) { return std::to_string(i * 7919 % n - n / 2); };
            text += facet("0 0 " + std::to_string(-(i % 3)), "0 0 9",
                          steps(23) + " " + steps(19) + " " + steps(17));
        }
        return text + "endsolid\n";
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

    /// Does `act` in a process of its own, in the folder, and returns the first fault that it
    /// noted; that of a process that dies is the last thing that it was about to do.
    template <class act_fn> std::string apart(const act_fn& act)
    {
        const pid_t child = fork();
        if (child == 0) {
            fs::current_path(path);
            fault.clear();
            act();
            write("fault", fault);
            _exit(0);
        }
        int status = 1;
        waitpid(child, &status, 0);
        return status == 0 ? read("fault") : "died at " + read("step");
    }
    void expect(bool holds, const std::string& what)
    {
        if (!holds && fault.empty()) fault = what;
    }

    static int first_free_file()
    {
        const int number = fcntl(STDERR_FILENO, F_DUPFD, 3);
        close(number);
        return number;
    }
    static void close_unless_closed(std::FILE* file, int number)
    {
        if (fcntl(number, F_GETFD) != -1) std::fclose(file);
    }

    /// Runs with the n-th allocation failing, and looks that all is given back.
    /// @return whether there were fewer
    bool run(const std::string& options, std::uint64_t nth)
    {
        const std::uint64_t blocks = heap_blocks();
        const int free_file = first_free_file();
        std::FILE* const log = stderr;
        stdin = std::fopen("in.kvd", "rb");
        stdout = std::fopen("stdout", "wb");
        stderr = std::fopen("log", "wb");
        const int in_number = fileno(stdin);
        const int out_number = fileno(stdout);
        alarm(20);
        heap_fail_nth(nth);
        result = run_words(options);
        const bool passed_the_end = heap_calls() < nth;
        heap_fail_nth(0);
        close_unless_closed(stdin, in_number);
        close_unless_closed(stdout, out_number);
        std::fclose(stderr);
        stderr = log;
        expect(heap_blocks() == blocks, "memory is kept");
        expect(first_free_file() == free_file, "a file is left open");
        return passed_the_end;
    }

    /// Every allocation of a run fails in turn. A failure that costs nothing is no failure: the
    /// output is then the usual one.
    std::uint64_t walk(const memory_case& c)
    {
        const std::string input = read(c.in);
        const std::string moved = c.in + std::string("~");
        run(c.options, 0);
        const std::string usual = read(c.out);
        expect(result == 0 && !usual.empty(), "no usual output");
        std::uint64_t nth = 1;
        for (bool ended = false; !ended && fault.empty(); ++nth) {
            write("step", std::to_string(nth));
            fs::remove(c.out);
            fs::remove(moved);
            write(c.in, input);
            ended = run(c.options, nth);
            const bool finished = log_holds("wrote output file") && !log_holds("output error");
            expect(log_tells_a_failure() || (finished && read(c.out) == usual), "nothing is told");
            expect(read(c.in) == input || read(moved) == input, "the input has changed");
        }
        if (!fault.empty()) fault += " at " + read("step") + "\n" + read("log");
        write(c.in, input);
        return nth - 1;
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

    int result = 0; ///< of the last run
    std::string fault;
};

} // namespace

TEST_F(memory, runs_out_with_a_word_and_without_harm)
{
    std::uint64_t walked = 0;
    for (const memory_case& c : cases) {
        EXPECT_EQ(apart([&] { write("walked", std::to_string(walk(c))); }), "") << c.options;
        const int failures = std::atoi(read("walked").c_str());
        EXPECT_GT(failures, 20) << c.options;
        walked += static_cast<std::uint64_t>(failures);
    }
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
    EXPECT_EQ(apart([&] {
                  for (const char* name : {"first", "second"})
                      run(std::string("-f in.astl -e gone -q 4 -a 60 -o ") + name, 0);
              }),
              "");
    EXPECT_FALSE(read("gone.astl").empty()) << "something was removed";
    EXPECT_EQ(read("first.astl"), read("second.astl"));
}

} // namespace velmora
