// The texts of a shell: words of a command line, and the progress line at each width.
#include "mesh/memory.h"
#include "shell/command_line.h"
#include "shell/progress_line.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace velmora {

static std::vector<std::string> words_of(const char* line)
{
    int argc = 0;
    char** argv = nullptr;
    split_command_line(line, &argc, &argv);
    EXPECT_STREQ(argv[0], "velmora");
    EXPECT_EQ(argv[argc], nullptr);
    const std::vector<std::string> words(argv + 1, argv + argc);
    free_command_line(argv);
    return words;
}

TEST(command_line, splits_at_blanks_and_quotes)
{
    struct {
        const char* line;
        std::vector<std::string> words;
    } const cases[] = {
        {nullptr, {}},
        {"", {}},
        {"  -f part.stl   -r 1 ", {"-f", "part.stl", "-r", "1"}},
        {"-f \"my part.stl\" -P", {"-f", "my part.stl", "-P"}},
        {"\"a\"b", {"a", "b"}},
        {"a\"b\"c", {"ab", "c"}},
        {"a\" b", {"a b"}},
        {"a\"\" b", {"a", "b"}},
        {"\"  \" a", {"a"}},
        {"\"  \"\"  \"", {}},
        {"\" a \"", {" a "}},
        {"\"open  ", {"open  "}},
        {"\"   ", {}},
        {"a\\\" b", {"a\\ b"}},
        {"a\tb", {"a\tb"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line ? c.line : "null");
        EXPECT_EQ(words_of(c.line), c.words);
    }
}

TEST(command_line, has_no_bound)
{
    const std::string word(100000, 'w');
    EXPECT_EQ(words_of((word + " \"" + word + " " + word + "\"").c_str()),
              (std::vector<std::string>{word, word + " " + word}));
    std::string many;
    for (int i = 0; i < 50000; ++i)
        many += "\"x\"";
    EXPECT_EQ(words_of(many.c_str()).size(), 50000u);
}

TEST(command_line, is_empty_without_memory)
{
    heap_fail_nth(1);
    EXPECT_TRUE(words_of("-f part.stl").empty());
    heap_fail_nth(0);
}

static std::string line_of(const char* status, int percent, int columns)
{
    char text[k_progress_line_size];
    const std::size_t size = format_progress_line(text, status, percent, columns);
    EXPECT_EQ(std::string(text).size(), size);
    EXPECT_LE(static_cast<int>(size), columns > 0 ? columns : 0);
    return text;
}

TEST(progress_line, gives_up_its_parts_one_by_one)
{
    EXPECT_EQ(line_of("Status", 50, 79), "Status  [###############...............]  50 %");
    EXPECT_EQ(line_of("Status", 50, 30), "Status  [#######.......]  50 %");
    EXPECT_EQ(line_of("Status", 50, 18), "Sta  [##...]  50 %");
    EXPECT_EQ(line_of("Status", 50, 13), "[##...]  50 %");
    EXPECT_EQ(line_of("Status", 50, 12), " 50 %");
    EXPECT_EQ(line_of("Status", 50, 5), " 50 %");
    EXPECT_EQ(line_of("Status", 50, 4), "");
    EXPECT_EQ(line_of("", 7, 79), "[##............................]   7 %");
}

TEST(progress_line, fits_whatever_it_is_given)
{
    for (int columns = -1; columns < 300; ++columns) {
        for (const int percent : {-2147483647, -1, 0, 99, 100, 101, 2147483647}) {
            line_of(std::string(200, 's').c_str(), percent, columns);
            line_of("", percent, columns);
        }
    }
    EXPECT_EQ(line_of("", 101, 79), line_of("", 100, 79));
    EXPECT_EQ(line_of("", -5, 79), line_of("", 0, 79));
}

} // namespace velmora
