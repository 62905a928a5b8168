#include "mesh/log.h"
#include "run/options.h"

namespace velmora {

namespace {

enum check_kind : std::int32_t {
    check_range,     ///< low <= value <= high
    check_tolerance, ///< value > 0
};

struct check_row {
    std::uint64_t bit;
    check_kind kind;
    char letter; ///< as the complaint names it
    double run_options::*value;
    double low;
    double high;
};

// In the order of the bits, which decides which of several bad values is told. The minimum edge
// goes by the letter of the maximum edge.
constexpr check_row k_checks[] = {
    {given_min_angle, check_range, 'a', &run_options::min_angle_opt, 0.0, 60.0},
    {given_angle_tol, check_range, 'c', &run_options::angle_tol_opt, -1.0, 1.0},
    {given_height_ratio, check_range, 'h', &run_options::height_ratio_opt, 0.0, 0.87},
    {given_max_edge, check_tolerance, 'i', &run_options::max_edge_opt, 0.0, 0.0},
    {given_merge_tol, check_tolerance, 'm', &run_options::merge_tol_opt, 0.0, 0.0},
    {given_pass_limit, check_range, 'p', &run_options::pass_limit, 0.0, 100.0},
    {given_dist_tol, check_tolerance, 'r', &run_options::dist_tol_opt, 0.0, 0.0},
    {given_grid, check_tolerance, 'g', &run_options::grid_opt, 0.0, 0.0},
    {given_min_edge, check_tolerance, 'i', &run_options::min_edge_opt, 0.0, 0.0},
};

constexpr const char* k_length_unit = "mm";

} // namespace

// A NaN is neither below nor above, so it passes both checks.
static bool in_range(const check_row& row, double value)
{
    if (!(value < row.low) && !(value > row.high)) return true;
    log_line("%s: -%c value must be between %lf and %lf.\n", k_program_name, row.letter, row.low,
             row.high);
    return false;
}

static bool is_tolerance(const check_row& row, double value)
{
    if (value < 0.0) {
        log_line("%s: tolerance (-%c) must be positive.\n", k_program_name, row.letter);
        return false;
    }
    if (value == 0.0) {
        log_line("%s: tolerance %lf%s specified with -%c is too low?\n", k_program_name, value,
                 k_length_unit, row.letter);
        return false;
    }
    return true;
}

bool check_options(const run_options& opt)
{
    for (const check_row& row : k_checks) {
        if (!is_given(opt, row.bit)) continue;
        const double value = opt.*row.value;
        const bool good = row.kind == check_range ? in_range(row, value) : is_tolerance(row, value);
        if (!good) return false;
    }
    return true;
}

} // namespace velmora
