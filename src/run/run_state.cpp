#include "run/run_state.h"

#include "files/stl_stream.h"
#include "mesh/cell_tree.h"
#include "mesh/log.h"
#include "mesh/tolerances.h"
#include "plg/plg.h"
#include "run/errors.h"
#include "run/model.h"
#include "run/options.h"
#include "run/progress.h"
#include "run/reduce_vertices.h"
#include "topo/edge_tbl.h"
#include "topo/topology.h"

#include <cmath>

namespace velmora {

run_state the_run;

namespace {

constexpr double k_default_angle_tol = 0.0005;
constexpr double k_default_pass_limit = 0.05;
constexpr double k_percent = 100.0;

double value_if(std::uint64_t given, double value, double otherwise)
{
    return is_given(the_options, given) ? value : otherwise;
}

// The distance waits for -c and the angle for -r: with -j alone either may be missing, and then
// the other is off too.
void set_params(reduce_params* params)
{
    const run_options& opt = the_options;
    params->mode = opt.mode_opt;
    params->dist_tol = value_if(given_angle_tol, opt.dist_tol_opt, 0.0);
    params->angle_tol = value_if(given_dist_tol, opt.angle_tol_opt, k_default_angle_tol);
    params->min_angle_cos =
        value_if(given_min_angle, std::cos(opt.min_angle_opt / 180 * k_pi), k_no_angle_limit);
    params->height_ratio = value_if(given_height_ratio, opt.height_ratio_opt, 0.0);
    params->max_edge = value_if(given_max_edge, opt.max_edge_opt, 0.0);
    params->min_edge = value_if(given_min_edge, opt.min_edge_opt, 0.0);
    params->grid = value_if(given_grid, opt.grid_opt, 0.0);
}

void set_limits(mesh_ctx* ctx)
{
    if (is_given(the_options, given_merge_tol))
        merge_tol = static_cast<float>(the_options.merge_tol_opt);
    if (is_given(the_options, given_max_level))
        ctx->max_level = static_cast<std::uint32_t>(the_options.max_level);
    if (is_given(the_options, given_node_list_len))
        ctx->max_list = static_cast<std::uint32_t>(the_options.node_list_len);
}

// The limit is kept, and nothing reads it: repeated passes end by themselves.
void set_pass_limit()
{
    if (is_given(the_options, given_pass_limit)) {
        the_options.pass_limit /= k_percent;
    } else if (is_given(the_options, given_multi_pass)) {
        the_options.pass_limit = k_default_pass_limit;
        log_line("%s(WARNING): using default multiple pass limit: 5.0%%\n",
                 the_options.program_name);
    }
}

stl_stream* new_stream(std::FILE* handle, bool ascii, std::uint32_t direction, const char* id)
{
    stl_stream* stream = stl_open();
    if (!stream) return nullptr;
    std::uint32_t format = ascii ? stl_format_ascii : stl_format_binary;
    stl_set(stream, stl_prop_handle, handle);
    const bool has_id = !id || stl_set(stream, stl_prop_id, const_cast<char*>(id));
    stl_set(stream, stl_prop_format, &format);
    stl_set(stream, stl_prop_direction, &direction);
    if (!has_id) discard_stream(&stream);
    return stream;
}

bool open_in_stream()
{
    run_options& opt = the_options;
    if (!is_given(opt, input_is_stl)) return true;
    opt.input_stream =
        new_stream(opt.input_file, is_given(opt, input_is_ascii), stl_reading, nullptr);
    if (!opt.input_stream) return fail_to("initialize the STL input");
    the_run.model.in_kind = 1;
    the_run.model.in_stream = opt.input_stream;
    return true;
}

bool open_out_stream(std::FILE* handle, std::uint64_t is_stl, std::uint64_t is_ascii,
                     stl_stream** stream, std::uint32_t* kind)
{
    if (!is_given(the_options, is_stl)) return true;
    *stream = new_stream(handle, is_given(the_options, is_ascii), stl_writing, k_version_id);
    if (!*stream) return fail_to("initialize the STL output");
    *kind = 1;
    return true;
}

bool open_streams()
{
    run_options& opt = the_options;
    model_ctx& model = the_run.model;
    if (!open_in_stream()) return false;
    if (!open_out_stream(opt.output_file, output_is_stl, output_is_ascii, &opt.output_stream,
                         &model.out_kind))
        return false;
    if (!open_out_stream(opt.removed_file, removed_is_stl, removed_is_ascii, &opt.removed_stream,
                         &model.removed_kind))
        return false;
    model.out_stream = opt.output_stream;
    model.removed_stream = opt.removed_stream;
    return true;
}

} // namespace

void init_run()
{
    set_option_defaults(&the_options);
    reset_progress();
    mark_vertex_table_stale();
    merge_tol = k_default_merge_tol;
    kill_value = k_default_kill_value;
    the_run = {};
    the_run.model.prog_name = k_program_name;
    mesh_ctx_init(&the_run.mesh, tr_is_point);
    the_run.mesh.model = &the_run.model;
    the_run.mesh.topo = the_run.model.topo = &the_run.topo;
    the_run.topo.sides = &the_run.sides;
    the_run.topo.table = &the_run.table;
    the_run.topo.params = &the_run.params;
}

bool init_io()
{
    set_limits(&the_run.mesh);
    if (!is_given(the_options, given_mode)) return fail_to("give reduction mode -q");
    set_params(&the_run.params);
    set_pass_limit();
    return open_streams();
}

void free_run()
{
    run_options& opt = the_options;
    if (opt.input_file) std::fclose(opt.input_file);
    opt.input_file = nullptr;
    discard_stream(&opt.input_stream);
    discard_output();
    vtx_table_free(&the_run.table);
    edge_groups_free(&the_run.sides);
    edge_tbl_free(&the_run.topo.edge_errs);
    list_free(&the_run.topo.edge_err_list);
    list_free(&the_run.topo.lone_list);
    plg_list_free(&the_run.topo.plg_list);
    cell_tree_discard(&the_run.mesh);
    cell_nodes_free();
    mesh_records_free();
    free_option_names(&opt);
}

} // namespace velmora
