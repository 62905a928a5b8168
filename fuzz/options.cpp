// The option line: the bytes are a command line, taken apart, parsed and checked, up to the open
// files. Slashes are taken out of its words, so that all names lie in one folder.
#include "run/options.h"

#include "files/os_file.h"
#include "fuzz.h"
#include "mesh/tolerances.h"
#include "run/run_state.h"
#include "shell/command_line.h"

#include <cstring>
#include <string>

namespace velmora {

namespace {

constexpr const char* k_input = "what stands in the input";

void make_files()
{
    empty_own_folder();
    for (const char* name : {"in.stl", "in.astl", "in.kvd", "in"})
        write_file(name, k_input);
}

void take_slashes_out(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) {
        for (char* c = argv[i]; *c != '\0'; ++c)
            if (*c == '/') *c = '|';
    }
}

// Names may be anything, also what the run never makes of them.
void look_at_names(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) {
        const char* extension = file_extension(argv[i], 5);
        demand(std::strlen(extension) <= 5, "a short extension");
        const bool plain = *extension == '\0' || std::strcmp(argv[i], ".") == 0;
        demand(plain || has_extension(argv[i]), "an extension to be one");
    }
}

int bits_of(std::uint64_t given)
{
    return __builtin_popcountll((the_options.given & given));
}

bool outside(std::uint64_t given, double value, double low, double high)
{
    return is_given(the_options, given) && (value < low || value > high);
}

void demand_checked_values()
{
    const run_options& o = the_options;
    demand(!outside(given_min_angle, o.min_angle_opt, 0.0, 60.0), "-a in its range");
    demand(!outside(given_angle_tol, o.angle_tol_opt, -1.0, 1.0), "-c in its range");
    demand(!outside(given_height_ratio, o.height_ratio_opt, 0.0, 0.87), "-h in its range");
    demand(!is_given(o, given_dist_tol) || !(o.dist_tol_opt <= 0.0), "-r above zero");
    demand(!(o.merge_tol_opt <= 0.0), "-m above zero");
    demand(bits_of(input_is_stl | input_is_kvd) == 1, "one form of the input");
    demand(bits_of(output_is_stl | output_is_kvd) == 1, "one form of the output");
    demand(bits_of(removed_is_stl) <= 1, "one form of the removed file");
}

// Whatever the options say, the bytes of the input are still there, under some name.
void demand_input_kept()
{
    std::FILE* input = the_options.input_file;
    std::uint64_t size = 0;
    if (input == stdin || !is_regular_file(input, &size)) return;
    const char* moved = the_options.moved_name;
    demand(size == std::strlen(k_input), "an input that is left alone");
    demand(is_same_file(moved ? moved : the_options.input_name, input), "its name to be known");
}

void parse(int argc, char** argv)
{
    init_run();
    const bool parsed = parse_options(argc, argv, &the_options);
    if (parsed && the_options.verbosity != 0) {
        demand_checked_values();
        demand_input_kept();
        demand(init_io() || !is_given(the_options, given_mode), "streams on good options");
    }
    free_run();
}

} // namespace

} // namespace velmora

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace velmora;
    enter_own_folder();
    make_files();
    const kept_log log;
    const own_streams streams(nullptr, 0);
    const std::string line(reinterpret_cast<const char*>(data), size);
    int argc = 0;
    char** argv = nullptr;
    split_command_line(line.c_str(), &argc, &argv);
    look_at_names(argc, argv);
    take_slashes_out(argc, argv);
    parse(argc, argv);
    free_command_line(argv);
    return 0;
}
