#include "run/options.h"

#include "mesh/log.h"
#include "mesh/memory.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace velmora {

run_options the_options;

int opt_index = 1;
int opt_letter = 0;
char* opt_arg = nullptr;

namespace {

constexpr const char* k_option_string = "a:c:e:f:g:h:i:j:l:m:n:o:p:q:r:E:F:K:O:PSV:W:";

constexpr const char* k_no_more_letters = "";

/// Letters of the current word that are still to be taken; also an option's attached argument.
const char* word_cursor = k_no_more_letters;

struct real_option {
    char letter;
    std::uint64_t bit;
    double run_options::*value;
};

constexpr real_option k_real_options[] = {
    {'a', given_min_angle, &run_options::min_angle_opt},
    {'c', given_angle_tol, &run_options::angle_tol_opt},
    {'g', given_grid, &run_options::grid_opt},
    {'h', given_height_ratio, &run_options::height_ratio_opt},
    {'i', given_max_edge, &run_options::max_edge_opt},
    {'j', given_min_edge, &run_options::min_edge_opt},
    {'m', given_merge_tol, &run_options::merge_tol_opt},
    {'p', given_pass_limit, &run_options::pass_limit},
    {'r', given_dist_tol, &run_options::dist_tol_opt},
    {'K', given_kill, &run_options::kill_opt},
};

struct int_option {
    char letter;
    bool whole; ///< digits only; otherwise any number, cut to its whole part
    std::uint64_t bit;
    std::int32_t run_options::*value;
};

constexpr int_option k_int_options[] = {
    {'l', false, given_max_level, &run_options::max_level},
    {'n', false, given_node_list_len, &run_options::node_list_len},
    {'q', true, given_mode, &run_options::mode_opt},
    {'V', true, given_verbosity, &run_options::verbosity},
};

struct name_option {
    char letter;
    std::uint64_t bit;
    const char* run_options::*value;
};

constexpr name_option k_name_options[] = {
    {'e', given_removed, &run_options::removed_name},
    {'f', given_input, &run_options::input_name},
    {'o', given_output, &run_options::output_name},
};

struct form_option {
    char letter;
    std::uint64_t ascii;
    std::uint64_t binary;
    std::uint64_t kvd; ///< 0: there is no native form of this file
};

constexpr form_option k_form_options[] = {
    {'E', removed_is_ascii, removed_is_binary, 0},
    {'F', input_is_ascii, input_is_binary, input_is_kvd},
    {'O', output_is_ascii, output_is_binary, output_is_kvd},
};

constexpr std::uint64_t k_plain_options[][2] = {
    {'P', given_multi_pass},
    {'S', given_shape},
};

} // namespace

void set_option_defaults(run_options* opt)
{
    *opt = run_options{};
    opt->input_file = stdin;
    opt->removed_file = stdout;
    opt->output_file = stdout;
    opt->verbosity = 3;
}

void free_option_names(run_options* opt)
{
    for (int i = 0; i < opt->owned_count; ++i)
        heap_free(opt->owned_names[i]);
    opt->owned_count = 0;
    opt->input_name = opt->removed_name = opt->output_name = opt->moved_name = nullptr;
}

bool is_given(const run_options& opt, std::uint64_t bits)
{
    return (opt.given & bits) != 0;
}

bool logs_up_to(const run_options& opt, std::int32_t highest)
{
    return opt.verbosity != 0 && opt.verbosity <= highest;
}

void restart_options()
{
    opt_index = 1;
    opt_letter = 0;
    opt_arg = nullptr;
    word_cursor = k_no_more_letters;
}

// An argv that a failed allocation has cut short ends at its null entry, before argc.
static char* word_at(int argc, char** argv, int index)
{
    return index < argc ? argv[index] : nullptr;
}

static void end_word()
{
    word_cursor = k_no_more_letters;
    ++opt_index;
}

// False when there is no further word of options.
static bool enter_word(int argc, char** argv)
{
    const char* word = word_at(argc, argv, opt_index);
    if (!word || word[0] != '-' || word[1] == '\0') return false;
    if (std::strcmp(word, "--") == 0) {
        ++opt_index;
        return false;
    }
    word_cursor = word + 1;
    return true;
}

static int refuse_option(char** argv, const char* complaint)
{
    log_line("%s: %s -- %c\n", argv[0], complaint, opt_letter);
    return '?';
}

static int take_argument(int argc, char** argv)
{
    if (*word_cursor != '\0') {
        opt_arg = argv[opt_index] + (word_cursor - argv[opt_index]);
        end_word();
        return opt_letter;
    }
    end_word();
    opt_arg = word_at(argc, argv, opt_index);
    if (!opt_arg) return refuse_option(argv, "option requires an argument");
    ++opt_index;
    return opt_letter;
}

int next_option(int argc, char** argv, const char* option_string)
{
    if (*word_cursor == '\0' && !enter_word(argc, argv)) return -1;

    opt_letter = static_cast<unsigned char>(*word_cursor++);
    const char* known = opt_letter == ':' ? nullptr : std::strchr(option_string, opt_letter);
    if (known && known[1] == ':') return take_argument(argc, argv);

    if (*word_cursor == '\0') end_word();
    if (!known) return refuse_option(argv, "illegal option");
    opt_arg = nullptr;
    return opt_letter;
}

static bool refuse_argument(const char* arg, int letter)
{
    log_line("%s: error in argument \"%s\" in option -%c.\n", k_program_name, arg, letter);
    return false;
}

static bool read_real(const char* text, double* value)
{
    char* end = nullptr;
    *value = std::strtod(text, &end);
    return end != text && *end == '\0';
}

static std::int32_t cut_to_i32(double value)
{
    using limits = std::numeric_limits<std::int32_t>;
    if (std::isnan(value)) return 0;
    const double lowest = static_cast<double>(limits::min());
    const double highest = static_cast<double>(limits::max());
    return static_cast<std::int32_t>(std::clamp(value, lowest, highest));
}

static bool read_cut_real(const char* text, std::int32_t* value)
{
    double real = 0.0;
    if (!read_real(text, &real)) return false;
    *value = cut_to_i32(real);
    return true;
}

// Values beyond 32 bits become the nearest that fits, also where a long has 64.
static bool read_whole(const char* text, std::int32_t* value)
{
    using limits = std::numeric_limits<std::int32_t>;
    char* end = nullptr;
    const long number = std::strtol(text, &end, 10);
    if (end == text || *end != '\0') return false;
    *value = static_cast<std::int32_t>(
        std::clamp(number, static_cast<long>(limits::min()), static_cast<long>(limits::max())));
    return true;
}

static bool take_form(const form_option& form, const char* arg, run_options* opt)
{
    std::uint64_t bit = 0;
    if (arg[0] == 'a') bit = form.ascii;
    if (arg[0] == 'b') bit = form.binary;
    if (arg[0] == 'm') bit = form.kvd;
    if (bit == 0) return refuse_argument(arg, form.letter);
    opt->given = (opt->given & ~(form.ascii | form.binary | form.kvd)) | bit;
    return true;
}

static bool take_flags(const char* arg, run_options* opt)
{
    for (const char* flag = arg; *flag != '\0'; ++flag) {
        switch (*flag) {
        case ' ':
            break;
        case 'C':
            opt->given |= given_flag_c;
            break;
        case 'c':
            opt->given &= ~given_flag_c;
            break;
        case 'N':
            opt->given |= given_message_box;
            break;
        case 'n':
            opt->given &= ~given_message_box;
            break;
        default:
            return refuse_argument(arg, *flag);
        }
    }
    return true;
}

static bool take_option(char letter, const char* arg, run_options* opt)
{
    for (const real_option& row : k_real_options) {
        if (row.letter != letter) continue;
        opt->given |= row.bit;
        return read_real(arg, &(opt->*row.value)) || refuse_argument(arg, letter);
    }
    for (const int_option& row : k_int_options) {
        if (row.letter != letter) continue;
        opt->given |= row.bit;
        std::int32_t* value = &(opt->*row.value);
        const bool good = row.whole ? read_whole(arg, value) : read_cut_real(arg, value);
        return good || refuse_argument(arg, letter);
    }
    for (const name_option& row : k_name_options) {
        if (row.letter != letter) continue;
        opt->given |= row.bit;
        opt->*row.value = arg;
        return true;
    }
    for (const form_option& row : k_form_options) {
        if (row.letter == letter) return take_form(row, arg, opt);
    }
    for (const auto& [plain, bit] : k_plain_options) {
        if (plain == static_cast<std::uint64_t>(letter)) opt->given |= bit;
    }
    return letter != 'W' || take_flags(arg, opt);
}

// An unknown letter has been told by the scanner and does no further harm.
static bool scan_options(int argc, char** argv, run_options* opt)
{
    restart_options();
    for (;;) {
        const int letter = next_option(argc, argv, k_option_string);
        if (letter == -1) return true;
        if (letter == '?') continue;
        if (!take_option(static_cast<char>(letter), opt_arg, opt)) return false;
    }
}

static void log_identity(const run_options& opt)
{
    log_line("%s(info): id = %s.\n", k_program_name, k_version_id);
    if (!logs_up_to(opt, 3)) return;
    log_line("%s(info): apparently running from %s.\n", k_program_name, opt.program_name);
}

bool parse_options(int argc, char** argv, run_options* opt)
{
    opt->program_name = argv[0];
    if (!scan_options(argc, argv, opt)) return false;
    if (opt->verbosity == 0) {
        print_usage();
        return true;
    }
    log_identity(*opt);
    opt->program_name = k_program_name;
    return check_options(*opt) && finish_options(opt);
}

} // namespace velmora
