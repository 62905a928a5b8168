#include "run/driver.h"

#include "files/model_io.h"
#include "files/stl_stream.h"
#include "mesh/cell_tree.h"
#include "mesh/large_block.h"
#include "mesh/log.h"
#include "mesh/renumber.h"
#include "mesh/soup_plant.h"
#include "mesh/tolerances.h"
#include "mesh/tree_renew.h"
#include "run/cycle.h"
#include "run/errors.h"
#include "run/model.h"
#include "run/options.h"
#include "run/progress.h"
#include "run/run_state.h"
#include "run/ui.h"

#include <cerrno>
#include <cmath>

namespace velmora {

namespace {

constexpr std::int32_t k_info_verbosity = 5;
constexpr std::int32_t k_rate_verbosity = 4;
constexpr std::int32_t k_show_percent_verbosity = 7;
constexpr double k_degrees_per_step = 10.0;

// What one run of run_reduce carries from step to step.
struct reduction {
    model_input in;            // until it stands in the tree
    std::uint32_t start_count; // triangles at the start of the last cycle
    std::int32_t cycle;        // turns so far, over all angle steps
    std::int32_t err;
    bool report; // the reduction is worth a line
};

const char* name()
{
    return the_options.program_name;
}

bool progress(std::int32_t percent)
{
    const run_options& opt = the_options;
    const bool show = opt.output_file != stdout && opt.verbosity == k_show_percent_verbosity;
    return update_progress(show, percent, run_progress_callback) != 0;
}

void prepare_ui()
{
    ui_prepare(nullptr);
    ui_set_status(1, "Reducing STL model");
    ui_set_status(2, "");
    ui_show();
    ui_reset();
}

bool memory_exhausted()
{
    log_line("%s(ERROR): memory exhausted.\n", name());
    return report_error(err_no_memory);
}

bool add_one_by_one(const obj_list& list, mesh_ctx* ctx)
{
    for (const obj_h o : list) {
        rec(rec(o).tr).plane_class = 0;
        tr_assign_id(o, false, ctx);
        if (!tree_add(o, nullptr, ctx)) return false;
    }
    return true;
}

double cos_deg(double degrees)
{
    return std::cos(degrees / 180 * k_pi);
}

// Mode 4 comes up to its angle in steps of ten degrees, with a distance tolerance that is the
// tighter the more steps there are.
struct angle_steps {
    double angle;
    int count;
};

angle_steps plan_angle_steps(double angle)
{
    angle_steps steps = {angle, angle >= 0.0 ? static_cast<int>(angle / k_degrees_per_step) : 0};
    if (angle > steps.count * k_degrees_per_step) ++steps.count;
    return steps;
}

bool add_to_tree(const obj_list& list, mesh_ctx* ctx)
{
    const renew_result added = tree_add_all(list, ctx);
    return added == renew_done || (added == renew_declined && add_one_by_one(list, ctx));
}

// The objects of a reader, then all records in the order of the tree.
bool add_list(model_input* in, mesh_ctx* ctx)
{
    if (!add_to_tree(in->list, ctx)) return false;
    free_input(in);
    renumber_mesh(renumber_all, ctx);
    return true;
}

// Whether any turn follows, in which the vertices would be merged: without one they stay apart.
bool will_merge(const reduce_params& params)
{
    if (is_given(the_options, given_shape)) return params.height_ratio > 0.0;
    return params.mode != mode_aspect || plan_angle_steps(the_options.min_angle_opt).count >= 1;
}

bool plant_input(model_input* in, mesh_ctx* ctx)
{
    const plant_vertices how = will_merge(*ctx->topo->params) ? plant_welded : plant_apart;
    switch (soup_plant(&in->soup, how, reader_margin(), ctx)) {
    case plant_done:
        return true;
    case plant_declined:
        return soup_to_list(in->soup, reader_margin(), &in->list) && add_list(in, ctx);
    default:
        return false;
    }
}

bool build_tree(model_input* in, mesh_ctx* ctx)
{
    ctx->root = cell_tree_new(in->bbox, 0, 0, 2 * in->count, ctx);
    if (!ctx->root) return memory_exhausted();
    const bool done = in->soup.count ? plant_input(in, ctx) : add_list(in, ctx);
    return done || memory_exhausted();
}

double angle_step_share(double angle)
{
    return angle <= 10.0 ? 0.9 : angle <= 20.0 ? 0.8 : 0.7;
}

bool run_cycle(reduction* job, mesh_ctx* ctx)
{
    if (reduce_cycle(&job->start_count, &job->cycle, &job->err, ctx)) return true;
    return report_error(job->err);
}

bool run_angle_steps(reduction* job, mesh_ctx* ctx)
{
    reduce_params* params = ctx->topo->params;
    const angle_steps steps = plan_angle_steps(the_options.min_angle_opt);
    params->dist_tol *= angle_step_share(steps.angle);
    job->report = steps.count >= 1;
    for (int k = 1; k <= steps.count; ++k) {
        const double angle = k < steps.count ? k * k_degrees_per_step : steps.angle;
        params->min_angle_cos = cos_deg(angle);
        if (!run_cycle(job, ctx)) return false;
    }
    return true;
}

bool run_shape(reduction* job, mesh_ctx* ctx)
{
    job->report = false;
    return shape_cycle(&job->err, ctx) || report_error(job->err);
}

bool reduce(reduction* job, mesh_ctx* ctx)
{
    job->report = true;
    if (is_given(the_options, given_shape)) return run_shape(job, ctx);
    if (ctx->topo->params->mode == mode_aspect) return run_angle_steps(job, ctx);
    return run_cycle(job, ctx);
}

void log_reduction(const reduction& job, std::uint32_t now)
{
    if (!job.report || job.start_count == 0) return;
    const double start = static_cast<double>(job.start_count);
    log_line("%s(WARNING): reduced form %1d triangles to %1d triangles (%1.2f%% reduction).\n",
             name(), static_cast<int>(job.start_count), static_cast<int>(now),
             (start - static_cast<double>(now)) / start * 100);
}

void log_rate(std::uint32_t count, const cpu_timer& timer)
{
    if (count == 0 || !logs_up_to(the_options, k_rate_verbosity)) return;
    const float rate = static_cast<float>(count) / timer.user_s;
    log_line("%s(info): rate is %.1f %s/sec.\n", name(), static_cast<double>(rate), "triangles");
}

// What the reader delivered, told; false when there is nothing to go on with.
bool log_read(const model_input& in)
{
    if (logs_up_to(the_options, k_info_verbosity)) {
        log_line("%s(info): %1d triangles read.\n", name(), static_cast<int>(in.count));
        if (in.count == 0) return false;
    }
    if (in.count != 0) log_extents(in.bbox);
    if (logs_up_to(the_options, k_info_verbosity))
        log_line("%s(info): initializing the data structures ...\n", name());
    return true;
}

void finish_run(std::uint32_t count, cpu_timer* timer, mesh_ctx* ctx)
{
    close_output();
    cell_tree_discard(ctx);
    timer_stop(timer, nullptr);
    log_time("reduction", timer);
    log_rate(count, *timer);
}

bool run_stages(reduction* job, mesh_ctx* ctx)
{
    if (!read_model(&job->in, &job->err, ctx)) return report_error(job->err);
    if (!progress(10) || !log_read(job->in)) return false;
    if (!build_tree(&job->in, ctx) || !progress(20)) return false;
    if (!reduce(job, ctx)) return false;
    log_reduction(*job, ctx->tr_count);
    if (!progress(80)) return false;
    write_output(&job->err, ctx);
    return progress(100);
}

void run_reduce()
{
    cpu_timer timer = {};
    reduction job = {};
    mesh_ctx* ctx = &the_run.mesh;
    timer_start(&timer, nullptr);
    prepare_ui();
    init_alarm(name());
    if (run_stages(&job, ctx)) finish_run(job.in.count, &timer, ctx);
    free_input(&job.in);
}

// Looks whether the input was read to its end. A binary model may end exactly at its last record:
// then the handle does not know yet, so one more byte is asked for.
void check_input()
{
    std::FILE* input = the_options.input_file;
    if (!input) return;
    if (std::ferror(input)) {
        log_line("%s: error reading from input file (%s).\n", name(),
                 system_error_text(input_errno()));
        return;
    }
    if (is_given(the_options, input_is_binary)) std::fgetc(input);
    if (!std::feof(input)) log_line("%s: aborted before reaching EOF.\n", name());
}

void show_result(int result)
{
    if (!is_given(the_options, given_message_box)) return;
    ui_hide();
    ui_message(result == 0 ? "STL processing completed. Please check the log file"
                           : "STL processing failed. Please check the log file");
}

int run_with_options()
{
    if (!init_io()) return -1;
    run_reduce();
    check_input();
    return 0;
}

} // namespace

int velmora_main(int argc, char** argv)
{
    prepare_large_blocks();
    init_run();
    the_options.program_name = argc > 0 ? argv[0] : k_program_name;
    const bool parsed = parse_options(argc, argv, &the_options);
    const bool wants_run = parsed && the_options.verbosity != 0;
    int result = parsed ? 0 : -1;
    if (wants_run) result = run_with_options();
    const bool ran = wants_run && result == 0;
    free_run();
    if (!ran) return result;
    result = ui_pump() ? 0 : -1;
    show_result(result);
    return result;
}

} // namespace velmora
