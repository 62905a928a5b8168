// The command line: what is accepted, what is said, and which files are opened under which names.
#include "mesh/memory.h"
#include "mesh/tolerances.h"
#include "run/options.h"
#include "temp_folder.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <iterator>
#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace velmora {

namespace fs = std::filesystem;

namespace {

const std::string opening = "velmora(info): id = VELMORA version 5.0.\n"
                            "velmora(info): apparently running from velmora.\n";
const std::string default_tol = "velmora(info): default 0.000001 point merge tolerance used.\n";

/// Writable words with a null entry behind them, as main gets them.
struct word_list {
    std::vector<std::string> words;
    std::vector<char*> pointers;

    explicit word_list(const std::vector<std::string>& list) : words(list)
    {
        for (std::string& word : words)
            pointers.push_back(word.data());
        pointers.push_back(nullptr);
    }
    int count() const
    {
        return static_cast<int>(words.size());
    }
};

/// Parses command lines in an empty directory of its own.
class options : public ::testing::Test, public temp_folder {
  protected:
    options()
    {
        fs::current_path(path);
        set_option_defaults(&opt);
    }

    ~options() override
    {
        close_files();
        fs::current_path(home);
        merge_tol = k_default_merge_tol;
        kill_value = k_default_kill_value;
    }

    void close_files()
    {
        for (std::FILE* file : {opt.input_file, opt.output_file, opt.removed_file})
            if (file != stdin && file != stdout) std::fclose(file);
        free_option_names(&opt);
        set_option_defaults(&opt);
    }

    /// The words behind the program's name; what was logged stands in `log`. The files of the
    /// command line before are closed.
    bool parse(std::vector<std::string> words)
    {
        close_files();
        words.insert(words.begin(), "velmora");
        line = std::make_unique<word_list>(words);
        ::testing::internal::CaptureStderr();
        const bool good = parse_options(line->count(), line->pointers.data(), &opt);
        log = ::testing::internal::GetCapturedStderr();
        return good;
    }

    /// With -r and -c, so that the run could begin; the two lines about identity are cut off `log`.
    bool parse_run(const std::string& more = "")
    {
        std::istringstream words("-r 1 -c 0.5 " + more);
        const bool good = parse({std::istream_iterator<std::string>(words), {}});
        if (log.starts_with(opening)) log.erase(0, opening.size());
        return good;
    }

    run_options opt;
    std::string log;

  private:
    fs::path home = fs::current_path();
    std::unique_ptr<word_list> line;
};

} // namespace

struct scan_case {
    const char* name;
    std::vector<std::string> words;
    std::string letters; ///< each with its argument in parentheses
    int index;           ///< of the first word that was left alone
    std::string log;
};

static const scan_case scan_cases[] = {
    {"nothing", {}, "", 1, ""},
    {"argument attached and apart", {"-r5", "-r", "6"}, "r(5)r(6)", 4, ""},
    {"letters together", {"-PSPr", "7"}, "PSPr(7)", 3, ""},
    {"an option as an argument", {"-r", "-P"}, "r(-P)", 3, ""},
    {"empty argument", {"-r", "", "-P"}, "r()P", 4, ""},
    {"first plain word", {"-P", "part", "-S"}, "P", 2, ""},
    {"lone minus", {"-P", "-", "-S"}, "P", 2, ""},
    {"two minuses", {"-P", "--", "-S"}, "P", 3, ""},
    {"two minuses and more", {"--P"}, "?P", 2, "prog: illegal option -- -\n"},
    {"unknown",
     {"-xP", "-:", "-y"},
     "?P??",
     4,
     "prog: illegal option -- x\nprog: illegal option -- :\nprog: illegal option -- y\n"},
    {"argument missing", {"-Pr"}, "P?", 2, "prog: option requires an argument -- r\n"},
};

TEST(option_scanner, goes_from_letter_to_letter)
{
    for (const scan_case& c : scan_cases) {
        SCOPED_TRACE(c.name);
        std::vector<std::string> words = c.words;
        words.insert(words.begin(), "prog");
        word_list line(words);
        restart_options();

        ::testing::internal::CaptureStderr();
        std::string letters;
        for (int letter;
             (letter = next_option(line.count(), line.pointers.data(), "r:PS")) != -1;) {
            letters += static_cast<char>(letter);
            if (letter != '?' && opt_arg) letters += "(" + std::string(opt_arg) + ")";
        }
        EXPECT_EQ(::testing::internal::GetCapturedStderr(), c.log);
        EXPECT_EQ(letters, c.letters);
        EXPECT_EQ(opt_index, c.index);
    }
}

TEST(option_scanner, ends_at_a_word_that_got_lost)
{
    char name[] = "prog";
    char wants[] = "-r";
    char* words[] = {name, wants, nullptr};
    restart_options();
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(next_option(5, words, "r:"), '?');
    EXPECT_EQ(next_option(5, words, "r:"), -1);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "prog: option requires an argument -- r\n");
}

TEST_F(options, take_every_value)
{
    EXPECT_TRUE(parse({"-a",  "20", "-c", "-.5", "-g",  "1e-3", "-h",  ".25", "-i", "7",
                       "-j",  "2",  "-l", "9.7", "-m",  "0.5",  "-n",  "12",  "-p", "50",
                       "-q4", "-r", "3",  "-K",  "1e5", "-PS",  "-V4", "-W",  "N C"}));
    const std::pair<double, double> taken[] = {
        {opt.min_angle_opt, 20.0}, {opt.angle_tol_opt, -0.5},    {opt.grid_opt, 1e-3},
        {opt.max_edge_opt, 7.0},   {opt.height_ratio_opt, 0.25}, {opt.min_edge_opt, 2.0},
        {opt.max_level, 9.0},      {opt.merge_tol_opt, 0.5},     {opt.node_list_len, 12.0},
        {opt.pass_limit, 50.0},    {opt.mode_opt, 4.0},          {opt.dist_tol_opt, 3.0},
        {kill_value, 1e5},         {opt.verbosity, 4.0},
    };
    for (const auto& [value, expected] : taken)
        EXPECT_EQ(value, expected);

    const std::uint64_t values = 0x1 | 0x2 | 0x10 | 0x20 | 0x40 | 0x80 | 0x100 | 0x400 | 0x800;
    const std::uint64_t forms = 1ull << 14 | 1ull << 17 | 1ull << 21;
    const std::uint64_t capitals = 0x77ull << 23 | 0xdull << 30;
    EXPECT_EQ(opt.given, values | forms | capitals);
    EXPECT_EQ(log, "velmora(info): id = VELMORA version 5.0.\n"
                   "velmora(info): multiple pass reduction is enabled\n"
                   "velmora(info): shape optimization is enabled\n");
}

TEST_F(options, let_a_later_one_win)
{
    EXPECT_TRUE(parse_run("-r 2 -F a -Fbinary -O a -Om -W NnCcN"));
    EXPECT_EQ(opt.dist_tol_opt, 2.0);
    EXPECT_TRUE(is_given(opt, input_is_binary));
    EXPECT_FALSE(is_given(opt, input_is_ascii));
    EXPECT_FALSE(is_given(opt, output_is_stl));
    EXPECT_TRUE(is_given(opt, output_is_kvd));
    EXPECT_TRUE(is_given(opt, given_message_box));
    EXPECT_FALSE(is_given(opt, given_flag_c));
}

TEST_F(options, refuse_arguments_that_are_no_value)
{
    struct {
        const char* option;
        const char* arg;
        char letter;
    } const cases[] = {
        {"-a", "", 'a'},    {"-r", "1x", 'r'}, {"-K", " ", 'K'},   {"-g", "1 ", 'g'},
        {"-q", "1.0", 'q'}, {"-V", "", 'V'},   {"-V", "0x1", 'V'}, {"-l", "many", 'l'},
        {"-F", "", 'F'},    {"-F", "B", 'F'},  {"-E", "m", 'E'},   {"-O", "stl", 'O'},
        {"-W", "N x", 'x'}, {"-W", "-", '-'},
    };
    for (const auto& c : cases) {
        EXPECT_FALSE(parse({c.option, c.arg, "-x"}));
        EXPECT_EQ(log, std::string("velmora: error in argument \"") + c.arg + "\" in option -" +
                           c.letter + ".\n");
    }
}

TEST_F(options, clamp_whole_numbers_to_32_bits)
{
    EXPECT_TRUE(parse_run("-q 99999999999999999999 -V -3000000000 -n 1e300 -l -1e300"));
    EXPECT_EQ(opt.mode_opt, std::numeric_limits<std::int32_t>::max());
    EXPECT_EQ(opt.verbosity, std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(opt.node_list_len, std::numeric_limits<std::int32_t>::max());
    EXPECT_EQ(opt.max_level, std::numeric_limits<std::int32_t>::min());
    EXPECT_TRUE(parse({"-r1", "-c1", "-l", "nan", "-n", "-7.9", "-V", " 5"}));
    EXPECT_EQ(opt.verbosity, 5);
    EXPECT_EQ(opt.max_level, 0);
    EXPECT_EQ(opt.node_list_len, -7);
}

TEST_F(options, have_bounds_that_belong_to_them)
{
    for (const char* good : {"-a0", "-a60", "-c-1", "-c1", "-h0", "-h0.87", "-p0", "-p100", "-anan",
                             "-rinf", "-i1e-300", "-K0", "-q-7"}) {
        EXPECT_TRUE(parse_run(good)) << good;
    }
    struct {
        const char* options;
        const char* log;
    } const cases[] = {
        {"-a60.5", "-a value must be between 0.000000 and 60.000000."},
        {"-a-0.1", "-a value must be between 0.000000 and 60.000000."},
        {"-c1.01", "-c value must be between -1.000000 and 1.000000."},
        {"-h0.8701", "-h value must be between 0.000000 and 0.870000."},
        {"-p101", "-p value must be between 0.000000 and 100.000000."},
        {"-i-1", "tolerance (-i) must be positive."},
        {"-j-1", "tolerance (-i) must be positive."},
        {"-j0", "tolerance 0.000000mm specified with -i is too low?"},
        {"-m-0.0", "tolerance -0.000000mm specified with -m is too low?"},
        {"-g-inf", "tolerance (-g) must be positive."},
        // Of several the first in a fixed order is told.
        {"-j0 -g0 -r0 -p-1 -m0", "tolerance 0.000000mm specified with -m is too low?"},
        {"-j0 -g0 -r-1", "tolerance (-r) must be positive."},
        {"-j0 -g-1", "tolerance (-g) must be positive."},
    };
    for (const auto& c : cases) {
        EXPECT_FALSE(parse_run(c.options));
        EXPECT_EQ(log, std::string("velmora: ") + c.log + "\n");
    }
}

TEST_F(options, have_defaults_and_note_the_merge_tolerance_in_force)
{
    merge_tol = 0.25f;
    EXPECT_TRUE(parse_run());
    EXPECT_EQ(log, "velmora(info): default 0.250000 point merge tolerance used.\n");
    EXPECT_EQ(opt.merge_tol_opt, 0.25);
    EXPECT_TRUE(is_given(opt, given_merge_tol));
    EXPECT_EQ(opt.verbosity, 3);
    EXPECT_EQ(opt.removed_file, stdout);
}

struct form_case {
    const char* options;
    const char* input;
    const char* output;
    const char* removed;
    bool assumed; ///< the input's form is a guess, which is told
};

static const form_case form_cases[] = {
    {"", "binary", "binary", "binary", false},
    {"-F a", "ascii", "ascii", "ascii", false},
    {"-F m", "kvd", "kvd", "none", false},
    {"-f in.stl", "binary", "binary", "binary", false},
    {"-f in.stlx", "binary", "binary", "binary", false},
    {"-f in.astl", "ascii", "ascii", "ascii", false},
    {"-f in.kvd", "kvd", "kvd", "none", false},
    {"-f in.STL", "binary", "binary", "binary", true},
    {"-f in.stl.gz", "binary", "binary", "binary", true},
    {"-f in.stlxy", "binary", "binary", "binary", true},
    {"-f d.kvd/in", "binary", "binary", "binary", true},
    {"-f in.kvd -F a", "ascii", "ascii", "ascii", false},
    {"-f in.stl -o out.astl", "binary", "ascii", "binary", false},
    {"-f in.stl -o out.kvd", "binary", "kvd", "binary", false},
    {"-f in.astl -o out.dat", "ascii", "ascii", "ascii", false},
    {"-f in.stl -o out.astl -O m", "binary", "kvd", "binary", false},
    {"-f in.stl -o out.astl -e gone.stl", "binary", "ascii", "ascii", false},
    {"-f in.astl -o out.kvd -e gone.stl", "ascii", "kvd", "ascii", false},
    {"-f in.kvd -o out.stl -e gone", "kvd", "binary", "binary", false},
    {"-f in.kvd -e gone.stl", "kvd", "kvd", "none", false},
    {"-f in.stl -e gone.astl -E a", "binary", "binary", "ascii", false},
};

static std::string form_name(const run_options& opt, std::uint64_t ascii)
{
    const std::uint64_t form = opt.given & (ascii | ascii << 1 | ascii << 2);
    if (form == ascii) return "ascii";
    if (form == ascii << 1) return "binary";
    if (form == ascii << 2) return "kvd";
    return form ? "mixed" : "none";
}

TEST_F(options, settle_the_form_of_each_file)
{
    fs::create_directory("d.kvd");
    for (const char* name : {"in.stl", "in.stlx", "in.astl", "in.kvd", "in.STL", "in.stl.gz",
                             "in.stlxy", "d.kvd/in"}) {
        write(name, "content");
    }
    for (const form_case& c : form_cases) {
        SCOPED_TRACE(c.options);
        EXPECT_TRUE(parse_run(c.options));
        EXPECT_EQ(form_name(opt, input_is_ascii), c.input);
        EXPECT_EQ(form_name(opt, output_is_ascii), c.output);
        EXPECT_EQ(form_name(opt, removed_is_ascii), c.removed);
        const std::string guess =
            "velmora(WARNING): input file format is assumed to be binary STL.\n";
        EXPECT_EQ(log, default_tol + (c.assumed ? guess : ""));
    }
}

TEST_F(options, add_extensions_where_they_are_missing)
{
    write("part.astl", "content");
    EXPECT_TRUE(parse_run("-f part -F a -o result -O b -e gone"));
    EXPECT_STREQ(opt.input_name, "part.astl");
    EXPECT_STREQ(opt.output_name, "result.stl");
    EXPECT_STREQ(opt.removed_name, "gone.astl");
    EXPECT_TRUE(fs::exists("result.stl"));
    EXPECT_TRUE(fs::exists("gone.astl"));

    // Without a form of its own the removed file takes the output's extension.
    write("part.kvd", "content");
    EXPECT_TRUE(parse_run("-f part.kvd -e more"));
    EXPECT_STREQ(opt.removed_name, "more.kvd");

    write("part", "content");
    EXPECT_TRUE(parse_run("-f part -F a -o ."));
    EXPECT_STREQ(opt.input_name, "part");
    EXPECT_STREQ(opt.output_name, "..astl");
}

TEST_F(options, tell_why_a_file_cannot_be_opened)
{
    fs::create_directory("d.x");
    struct {
        const char* options;
        const char* log;
    } const cases[] = {
        {"-f part -F a", "rb) neither \"part\" nor \"<ditto>.astl\" (No such file or directory)"},
        {"-f part.stl", "rb) neither \"part.stl\" nor \"<ditto>.stl\" (No such file or directory)"},
        {"-o no/such/dir", "wb) \"no/such/dir\" (No such file or directory)"},
        {"-e d.x", "wb) \"d.x\" (Is a directory)"},
    };
    for (const auto& c : cases) {
        EXPECT_FALSE(parse_run(c.options));
        EXPECT_EQ(log, default_tol + "velmora: unable to access (mode:" + c.log + "\n");
    }
}

TEST_F(options, keep_names_within_260_characters)
{
    const std::string part(51, 'd');
    const std::string deep = part + "/" + part + "/" + part + "/" + part + "/"; // 208
    fs::create_directories(deep);
    const std::string fits = deep + std::string(48, 'n'); // 256, and 4 for ".stl"
    EXPECT_TRUE(parse_run("-o " + fits));
    EXPECT_EQ(opt.output_name, fits + ".stl");

    EXPECT_FALSE(parse_run("-o " + fits + "n"));
    EXPECT_EQ(log, default_tol + "velmora: path to \"output\" is too long.\n");
    EXPECT_FALSE(fs::exists(fits + "n"));
    EXPECT_FALSE(parse_run("-f " + fits + "n"));
    EXPECT_TRUE(log.ends_with("velmora: path to \"input\" is too long.\n")) << log;

    const std::string cut = deep + ".n" + std::string(50, 'n');
    EXPECT_TRUE(parse_run("-o " + cut + "beyond"));
    EXPECT_EQ(opt.output_name, cut);
}

TEST_F(options, never_empty_a_file_that_is_in_use)
{
    write("part.stl", "the model");
    fs::create_hard_link("part.stl", "hard.stl");
    fs::create_symlink("part.stl", "soft.stl");
    for (const std::string name : {"part.stl", "./part.stl", "hard.stl", "soft.stl", "part"}) {
        EXPECT_FALSE(parse_run("-f part.stl -o " + name));
        EXPECT_EQ(log, default_tol + "velmora: unable to access (mode:wb) \"" + name +
                           "\" (it is the input file)\n");
        EXPECT_FALSE(parse_run("-f part.stl -o new.stl -e " + name));
        EXPECT_TRUE(log.ends_with("(it is the input file)\n")) << log;
    }
    // A moved file is still the same file when its new name was another link to it.
    fs::create_hard_link("part.stl", "part.stl~");
    EXPECT_FALSE(parse_run("-f part.stl -o ="));
    EXPECT_EQ(read("part.stl"), "the model");
    fs::remove("part.stl~");

    EXPECT_FALSE(parse_run("-f part.stl -o = -e part.stl~"));
    EXPECT_TRUE(is_given(opt, output_in_place));
    EXPECT_EQ(read("part.stl~"), "the model");

    EXPECT_FALSE(parse_run("-o new.stl -e ./new"));
    EXPECT_TRUE(log.ends_with("(mode:wb) \"./new\" (it is the output file)\n")) << log;
}

TEST_F(options, share_devices_freely)
{
    fs::create_symlink("/dev/null", "void.stl");
    EXPECT_TRUE(parse_run("-f void.stl -o void.stl -e void.stl")) << log;
}

TEST_F(options, report_memory_that_ran_out)
{
    write("part.stl", "the model");
    for (std::uint64_t n = 1; n <= 4; ++n) {
        heap_fail_nth(n);
        EXPECT_FALSE(parse_run("-f part.stl -o = -e gone"));
        EXPECT_EQ(log, default_tol + "velmora: unable to allocate additional memory.\n");
        heap_fail_nth(0);
        if (n > 2) fs::rename("part.stl~", "part.stl");
        EXPECT_EQ(read("part.stl"), "the model");
    }
}

TEST(file_names, have_extensions_in_their_last_part)
{
    struct {
        const char* name;
        bool has;
        const char* extension; ///< within 5 characters
    } const cases[] = {
        {nullptr, false, ""},    {"", false, ""},           {".", false, "."},
        {"..", true, "."},       {"part", false, ""},       {"part.", true, "."},
        {"a.b/part", false, ""}, {"a.b/.", true, "."},      {"./part.stl", true, ".stl"},
        {".hidden", true, ""},   {"a.stl.gz", true, ".gz"}, {"p.astl", true, ".astl"},
        {"p.astlx", true, ""},   {"a.b\\part", true, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name ? c.name : "null");
        EXPECT_EQ(has_extension(c.name), c.has);
        EXPECT_STREQ(file_extension(c.name, 5), c.extension);
    }
}

} // namespace velmora
