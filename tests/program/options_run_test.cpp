// Options of the built program: exit status, what the log says, which files stand afterwards.
#include "program/model_run.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace velmora {
namespace {

const std::string k_opening = "velmora(info): id = VELMORA version 5.0.\n"
                              "velmora(info): apparently running from velmora.\n";
const std::string k_default_tol = "velmora(info): default 0.000001 point merge tolerance used.\n";

using options_run = model_run;

TEST_F(options_run, wrong_options_end_it_with_their_message)
{
    struct {
        const char* options;
        std::string log;
    } const cases[] = {
        {"", k_opening + k_default_tol + "velmora: the option \"r\" is missing and is required.\n"},
        {"-r 1 -m 1", k_opening + "velmora: the option \"c\" is missing and is required.\n"},
        {"-f in.stl -o new -r 1 -c 1",
         k_opening + k_default_tol + "velmora: failed to give reduction mode -q.\n"},
        {"-r 1x -c 1", "velmora: error in argument \"1x\" in option -r.\n"},
        {"-W 'N z'", "velmora: error in argument \"N z\" in option -z.\n"},
        {"-V 0 -a 99 -q x", "velmora: error in argument \"x\" in option -q.\n"},
        {"-m 0 -j 0", k_opening + "velmora: tolerance 0.000000mm specified with -m is too low?\n"},
        {"-V 4 -j -1", "velmora(info): id = VELMORA version 5.0.\n"
                       "velmora: tolerance (-i) must be positive.\n"},
        {"-r 1 -c 1 -q 1 -f none.kvd -o out.stl",
         k_opening + k_default_tol +
             "velmora: unable to access (mode:rb) neither \"none.kvd\" nor \"<ditto>.kvd\" (No "
             "such file or directory)\n"},
    };
    for (const auto& c : cases) {
        const program_result r = dir.run(c.options);
        EXPECT_EQ(r.status, 255) << c.options;
        EXPECT_EQ(r.log, c.log);
        EXPECT_EQ(r.out, "");
    }
    EXPECT_EQ(dir.read("new.stl"), "") << "opened before the mode was missed";
    EXPECT_FALSE(dir.has("out.stl"));
}

TEST_F(options_run, unknown_letters_and_words_behind_a_plain_one_do_no_harm)
{
    const program_result r =
        dir.run("-x -f in.stl -o out.stl" + k_as_is + " part -V 0 -o other.stl");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.log.find("velmora: illegal option -- x\nvelmora(info): id"), 0u);
    EXPECT_EQ(facets_of(dir.read("out.stl")).size(), 192u);
    EXPECT_FALSE(dir.has("other.stl"));
}

TEST_F(options_run, a_lone_request_for_help_is_answered_on_the_standard_output)
{
    const program_result help = dir.run("--help");
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.log, "");
    EXPECT_NE(help.out.find("\n  velmora -f MODEL -o RESULT -q MODE"), std::string::npos);
    const program_result version = dir.run("--version");
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.log + version.out, "VELMORA version 5.0\n");
    EXPECT_EQ(dir.run("--version >/dev/full").status, 255);

    // With anything beside it the words are options, taken letter by letter.
    for (const char* options : {"--help -V", "-- --help", "--help --help", "-V3 --version"}) {
        const program_result r = dir.run(options);
        EXPECT_EQ(r.status, 255) << options;
        EXPECT_EQ(r.out, "") << options;
    }
    EXPECT_EQ(dir.run("--help -V").log, "velmora: illegal option -- -\n"
                                        "velmora: error in argument \"elp\" in option -h.\n");
}

TEST_F(options_run, verbosity_gates_each_kind_of_line)
{
    struct {
        const char* line;
        int highest; ///< verbosity that has it
    } const gates[] = {
        {"apparently running from", 3},
        {"reduction time (u+s)", 4},
        {"rate is", 4},
        {"192 triangles read", 5},
        {"initializing the data", 5},
        {"constructing the", 5},
        {"removing degenerated", 5},
        {"reducing vertices ...", 5},
        {"removed altogeher", 5},
        {"wrote output file  \"out", 5},
        {"the ranges of the", 6},
        {"extents are X=2.00", 6},
        {"id = VELMORA", 99},
        {"reduced form 192", 99},
        {"less than three neigbors", 99},
    };
    for (const int verbosity : {-2147483647, -1, 1, 3, 4, 5, 6, 7}) {
        SCOPED_TRACE(verbosity);
        const program_result r =
            dir.run("-f in.stl -o out.stl -V " + std::to_string(verbosity) + k_reduce);
        EXPECT_EQ(r.status, 0);
        for (const auto& gate : gates)
            EXPECT_EQ(r.says(gate.line), verbosity <= gate.highest) << gate.line;
    }
    const program_result usage = dir.run("-f missing -o out.kvd -V 0 -r 0 -a 99");
    EXPECT_EQ(usage.status, 0);
    EXPECT_TRUE(usage.log.starts_with("  ------"));
    EXPECT_TRUE(usage.says("    i     i>=0.0      Mmaximum edge length.\n"));
    EXPECT_EQ(count_of("\n", usage.log), 30u);
    EXPECT_FALSE(dir.has("out.kvd"));
}

TEST_F(options_run, an_empty_input_stops_only_a_run_that_tells_of_it)
{
    dir.write("empty.stl", "");
    for (const char* verbosity : {"-V 4", "-V -1"}) {
        const program_result r =
            dir.run(std::string("-f empty.stl -o out.stl ") + verbosity + k_reduce);
        EXPECT_EQ(r.status, 0);
        EXPECT_TRUE(r.says("0 triangles read.\n"));
        EXPECT_FALSE(r.says("time (u+s)"));
        EXPECT_TRUE(dir.has("out.stl"));
    }
    const program_result quiet = dir.run("-f empty.stl -o out.kvd -V 6" + k_reduce);
    EXPECT_EQ(quiet.status, 0);
    EXPECT_EQ(dir.read("out.kvd").size(), 300u) << "a model without triangles";
}

TEST_F(options_run, standard_streams_stand_in_for_missing_names)
{
    dir.run("-f in.stl -o out.stl" + k_reduce);
    const program_result r = dir.run(k_reduce + " < in.stl");
    EXPECT_EQ(r.status, 0);
    EXPECT_TRUE(r.says("wrote output file  \"<stdout>\" : "));
    std::string expected = dir.read("out.stl");
    expected.replace(80, 4, 4, '\0'); // the count is never patched there
    EXPECT_EQ(r.out, expected);

    dir.run("-f in.stl -o out.astl" + k_reduce);
    EXPECT_EQ(dir.run("-F a -O ascii" + k_reduce + " < in.astl | cat").out, dir.read("out.astl"));
    dir.run("-o =" + k_reduce + " < in.stl");
    EXPECT_EQ(dir.read("=.stl"), dir.read("out.stl")) << "a name like others without -f";

    std::filesystem::create_hard_link(dir.path / "in.stl", dir.path / "hard.stl");
    EXPECT_EQ(dir.run("-o hard.stl" + k_reduce + " < in.stl").status, 255);
    EXPECT_EQ(dir.read("in.stl"), model) << "in use, and not emptied";
}

TEST_F(options_run, in_place_gives_up_silently_when_the_input_cannot_be_moved)
{
    std::filesystem::create_directory(dir.path / "in.stl~");
    const program_result r = dir.run("-f in.stl -o =" + k_reduce);
    EXPECT_EQ(r.status, 255);
    EXPECT_EQ(r.log, k_opening + k_default_tol);
    EXPECT_EQ(dir.read("in.stl"), model);
}

TEST_F(options_run, removed_file_has_the_form_of_the_stl_files_or_is_empty)
{
    struct {
        const char* options;
        const char* begins; ///< "" for an empty file
    } const cases[] = {
        {"-f in.stl -o out.stl", "VELMORA version 5.0"},
        {"-f in.stl -o out.astl", "solid VELMORA version 5.0\n"},
        {"-f in.astl -o out.kvd", "solid VELMORA version 5.0\n"},
        {"-f in.stl -o out.stl -E a", "solid VELMORA version 5.0\n"},
        {"-f in.kvd -o out.kvd", ""},
        {"-f in.stl -o out.stl -P", ""},
        {"-f in.stl -o out.stl -S -h 0.5", ""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(dir.run(c.options + (" -e gone.x" + k_reduce)).status, 0);
        const std::string bytes = dir.read("gone.x");
        EXPECT_TRUE(bytes.starts_with(c.begins)) << c.options;
        EXPECT_EQ(bytes.empty(), *c.begins == '\0') << c.options;
    }
}

TEST_F(options_run, triangles_beyond_the_kill_value_are_told)
{
    dir.write("far.stl", binary_stl(box_mesh(100, 2, 2, 1)));
    const program_result r = dir.run("-f far.stl -o out.stl -K 99.9" + k_as_is);
    EXPECT_TRUE(r.says("\nstl-input: ignored 10 triangles with absolute coordinate values larger "
                       "than   99.9 units.\n\nvelmora(info): 2 triangles read.\n"))
        << r.log;
    EXPECT_TRUE(dir.run("-f far.stl -K 100" + k_as_is).says("): 12 triangles"));
}

TEST_F(options_run, angle_mode_takes_steps_of_ten_degrees)
{
    for (const auto& [angle, steps] : {std::pair{"0", 0u}, {"10", 1u}, {"25", 3u}, {"30", 3u}}) {
        // Three triangles and no vertex that may go: each step has its two turns and no more.
        dir.write("fan.stl",
                  model.substr(0, 80) + std::string("\3\0\0\0", 4) + model.substr(84, 150));
        const program_result r =
            dir.run(std::string("-f fan.stl -o out.stl -a ") + angle + k_as_is);
        EXPECT_EQ(count_of("reducing vertices", r.log), 2u * steps) << angle;
        EXPECT_EQ(count_of("constructing the topology", r.log), steps ? 1u : 0u);
        EXPECT_EQ(r.says("reduced form"), steps != 0);
    }
}

// The number of a closed stream must not fall to a file of the run.
TEST_F(options_run, closed_standard_streams_lend_their_place_to_nobody)
{
    dir.run("-f in.stl -o out.stl" + k_reduce);
    dir.run("-o quiet.stl" + k_reduce + " < in.stl 2>&-");
    EXPECT_EQ(dir.read("quiet.stl"), dir.read("out.stl"));

    dir.run("-e gone.stl" + k_reduce + " < in.stl >&-");
    EXPECT_EQ(dir.read("gone.stl").size() % 50, 34u) << "what was removed, and nothing else";
    const program_result blind = dir.run("-o blind.stl" + k_reduce + " <&-");
    EXPECT_EQ(blind.status, 0);
    EXPECT_TRUE(blind.says("error reading from input file (Bad file descriptor).\n"));
}

} // namespace
} // namespace velmora
