// run/options.h - what the user asked for, from the command line to open files.
//
// One block for the process, `the_options`. parse_options fills it from the words of the command
// line, checks the values, settles which form each file has, and opens the files. Nothing here
// knows meshes. Every complaint goes to the log where it is found; the first one ends the parse.
//
// Text fields borrow from argv, from literals, or from `owned_names`. The handles belong to the
// block until the run closes them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace velmora {

struct stl_stream;

/// The name under which the program speaks, whatever it was started as.
constexpr const char* k_program_name = "velmora";

/// Name and version as they stand in the log and in the headers of written files.
constexpr const char* k_version_id = "VELMORA version 5.0";

/// Bits of run_options::given: options that were used, and the forms of the three files.
enum given_bit : std::uint64_t {
    given_min_angle = 1ull << 0,     ///< -a
    given_angle_tol = 1ull << 1,     ///< -c
    given_removed = 1ull << 2,       ///< -e
    given_input = 1ull << 3,         ///< -f
    given_height_ratio = 1ull << 4,  ///< -h
    given_max_edge = 1ull << 5,      ///< -i
    given_max_level = 1ull << 6,     ///< -l
    given_merge_tol = 1ull << 7,     ///< -m; always set behind finish_options
    given_node_list_len = 1ull << 8, ///< -n
    given_output = 1ull << 9,        ///< -o
    given_pass_limit = 1ull << 10,   ///< -p
    given_dist_tol = 1ull << 11,     ///< -r

    removed_is_ascii = 1ull << 13,  ///< removed file: ASCII STL (-E a, or deduced)
    removed_is_binary = 1ull << 14, ///< removed file: binary STL
    input_is_ascii = 1ull << 16,    ///< input: ASCII STL (-F a, or deduced)
    input_is_binary = 1ull << 17,   ///< input: binary STL
    input_is_kvd = 1ull << 18,      ///< input: native model
    output_is_ascii = 1ull << 20,   ///< output: ASCII STL (-O a, or deduced)
    output_is_binary = 1ull << 21,  ///< output: binary STL
    output_is_kvd = 1ull << 22,     ///< output: native model

    given_multi_pass = 1ull << 23,  ///< -P
    given_shape = 1ull << 24,       ///< -S
    given_verbosity = 1ull << 25,   ///< -V
    output_in_place = 1ull << 26,   ///< -o =: the output takes the name of the input
    given_grid = 1ull << 27,        ///< -g
    given_min_edge = 1ull << 28,    ///< -j
    given_kill = 1ull << 29,        ///< -K
    given_mode = 1ull << 30,        ///< -q
    given_flag_c = 1ull << 32,      ///< -W C; kept, read by nobody
    given_message_box = 1ull << 33, ///< -W N: a message box when the run has ended

    removed_is_stl = removed_is_ascii | removed_is_binary,
    input_is_stl = input_is_ascii | input_is_binary,
    output_is_stl = output_is_ascii | output_is_binary,
};

/// The option block. A value that was not given is 0.
struct run_options {
    const char* program_name;   ///< argv[0] while parsing, then k_program_name
    std::uint64_t given;        ///< given_bit
    std::FILE* input_file;      ///< standard input unless -f
    std::FILE* removed_file;    ///< standard output unless -e
    std::FILE* output_file;     ///< standard output unless -o
    std::int32_t verbosity;     ///< -V; 0 prints the usage text, below 0 logs most
    const char* input_name;     ///< -f as really opened, or "<stdin>"
    const char* removed_name;   ///< -e as really opened, or "<stdout>"
    const char* output_name;    ///< -o as really opened, or "<stdout>"
    stl_stream* input_stream;   ///< null for a native model
    stl_stream* removed_stream; ///< null when the removed file has no form
    stl_stream* output_stream;  ///< null for a native model
    std::int32_t max_level;     ///< -l
    std::int32_t node_list_len; ///< -n
    double merge_tol_opt;       ///< -m, mm
    double dist_tol_opt;        ///< -r, mm
    double angle_tol_opt;       ///< -c, a cosine
    double height_ratio_opt;    ///< -h
    double max_edge_opt;        ///< -i, mm
    double min_edge_opt;        ///< -j, mm
    double pass_limit;          ///< -p, percent
    double grid_opt;            ///< -g, mm
    std::int32_t mode_opt;      ///< -q: 1 distance, 2 short edge, 3 maximum edge, 4 bad aspect
    double kill_opt;            ///< -K
    double min_angle_opt;       ///< -a, degrees

    const char* moved_name; ///< where the input stands now if the output is in place, else null

    char* owned_names[4]; ///< texts behind the names of opened files
    int owned_count;      ///< entries of owned_names in use
};

/// The block of this process.
extern run_options the_options;

/// A fresh block: all zero, the standard streams as files, verbosity 3.
void set_option_defaults(run_options* opt);

/// Frees the texts that the names point to. The handles are not touched.
void free_option_names(run_options* opt);

/// Whether any of `bits` is set.
bool is_given(const run_options& opt, std::uint64_t bits);

/// Whether lines for verbosities 1 to `highest` are logged; a negative verbosity logs them too.
bool logs_up_to(const run_options& opt, std::int32_t highest);

/// Takes the command line into a block that set_option_defaults has filled. With verbosity 0 the
/// usage text is printed and nothing is checked or opened.
/// @return false after a complaint in the log; files opened so far stay open
[[nodiscard]] bool parse_options(int argc, char** argv, run_options* opt);

/// Which word the scanner looks at next; starts at 1.
extern int opt_index;

/// The letter that next_option has just met, also when it was refused.
extern int opt_letter;

/// The argument of that option; null for one that takes none.
extern char* opt_arg;

/// Puts the scanner in front of the first word.
void restart_options();

/// The next option letter, '?' after a complaint, or -1 at the first word that is no option.
/// In `option_string` a colon behind a letter means that it takes an argument.
int next_option(int argc, char** argv, const char* option_string);

/// Holds the given values against their ranges; the first that is outside is told.
[[nodiscard]] bool check_options(const run_options& opt);

/// Fills in what was left open, then opens the files; the first failure is told. The input is
/// moved to its name with a tilde behind it when the output is to take its place.
[[nodiscard]] bool finish_options(run_options* opt);

/// Handles that an opening for writing must not empty; either may be null.
struct kept_files {
    std::FILE* input;
    std::FILE* output;
};

/// Opens `name`, with `extension` added when the name has none: always for writing ("wb"), after a
/// first failure for reading ("rb"). A file that is already in use as one of `kept`, under any
/// name, is not opened for writing. Names beyond 260 characters are cut.
/// @param[out] handle_out  the handle, set on success; the caller closes it
/// @param[out] name_out    the name as really opened, set on success; heap_free it
/// @return false after a complaint in the log
[[nodiscard]] bool open_file(const char* name, std::FILE** handle_out, const char* mode,
                             const char* extension, char** name_out, const kept_files& kept);

/// Whether the last part of `path` holds a point. "." alone has no extension; null has none.
bool has_extension(const char* path);

/// The text from the last point of the last part of `name`, or "" when there is none or when it is
/// longer than `limit` characters, its point included. Points into `name`.
const char* file_extension(const char* name, std::size_t limit);

/// Prints the description of all options to the log.
void print_usage();

} // namespace velmora
