// Whole runs in which one allocation fails, each in turn.
#include "mesh/memory.h"
#include "run/driver.h"

#include <cstdio>
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

constexpr int k_past_the_end = 99; ///< the run took fewer allocations

/// Runs in a process of its own, in an empty folder.
class memory : public ::testing::Test {
  protected:
    memory()
    {
        std::string pattern = fs::temp_directory_path() / "memory_test_XXXXXX";
        dir = mkdtemp(pattern.data());
        std::ofstream(dir / "in.astl") << model();
    }
    ~memory() override
    {
        fs::remove_all(dir);
    }

    /// A pyramid on a square of four triangles.
    static std::string model()
    {
        const char* const corners[] = {"0 0 0", "2 0 0", "2 2 0", "0 2 0"};
        std::string text = "solid\n";
        for (int i = 0; i < 4; ++i) {
            const std::string a = corners[i];
            const std::string b = corners[(i + 1) % 4];
            text += facet(a, b, "1 1 1") + facet(b, a, "1 1 0");
        }
        return text + "endsolid\n";
    }
    static std::string facet(const std::string& a, const std::string& b, const std::string& c)
    {
        return "facet normal 0 0 0\nouter loop\nvertex " + a + "\nvertex " + b + "\nvertex " + c +
               "\nendloop\nendfacet\n";
    }

    [[noreturn]] void run_here(const std::string& options, std::uint64_t nth) const
    {
        std::istringstream line("velmora " + options);
        std::vector<std::string> words(std::istream_iterator<std::string>(line), {});
        std::vector<char*> argv;
        for (std::string& word : words)
            argv.push_back(word.data());
        argv.push_back(nullptr);
        fs::current_path(dir);
        if (!std::freopen("log", "wb", stderr)) _exit(k_past_the_end - 1);
        std::setvbuf(stderr, nullptr, _IONBF, 0);
        alarm(20);
        heap_fail_nth(nth);
        const int result = velmora_main(static_cast<int>(words.size()), argv.data());
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

    std::string read(const char* name) const
    {
        std::ifstream file(dir / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    bool log_tells_a_failure() const
    {
        const std::string log = read("log");
        for (const char* text :
             {"memory exhausted.\n", "memory end\n", "no more memory", "error number 0.\n",
              "output error\n", "unable to allocate", "failed to initialize"})
            if (log.find(text) != std::string::npos) return true;
        return false;
    }

    fs::path dir;
};

} // namespace

// A failure that costs nothing is no failure: the output is then the usual one.
TEST_F(memory, runs_out_with_a_word_and_without_harm)
{
    ASSERT_EQ(run("-f in.astl -o in.kvd -r 1 -c 0.5 -q 4", UINT64_MAX), k_past_the_end);
    for (const std::string options :
         {"-f in.astl -o out -q 4", "-f in.astl -o out -e gone -q 1", "-f in.kvd -o out -q 4 -a 20",
          "-f in.astl -o out.kvd -S -h 0.5 -q 2", "-f in.astl -o out -i 3 -g 1 -q 3"}) {
        SCOPED_TRACE(options);
        const std::string all = options + " -r 0.5 -c 0.5";
        const char* out = options.find(".kvd") != std::string::npos ? "out.kvd" : "out.astl";
        ASSERT_EQ(run(all, UINT64_MAX), k_past_the_end);
        const std::string usual = read(out);
        ASSERT_FALSE(usual.empty());
        const std::string in_kvd = read("in.kvd");
        std::uint64_t nth = 1;
        for (int status = 0; status != k_past_the_end; ++nth) {
            fs::remove(dir / out);
            status = run(all, nth);
            ASSERT_TRUE(status == 0 || status == 1 || status == k_past_the_end) << nth;
            ASSERT_TRUE(log_tells_a_failure() || read(out) == usual) << nth << read("log");
        }
        EXPECT_GT(nth, 10u);
        EXPECT_EQ(read("in.astl"), model());
        EXPECT_EQ(read("in.kvd"), in_kvd);
    }
}

} // namespace velmora
