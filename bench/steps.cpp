#include "steps.h"

#include "files/model_io.h"
#include "mesh/cell_tree.h"
#include "mesh/large_block.h"
#include "mesh/renumber.h"
#include "mesh/soup_plant.h"
#include "mesh/tolerances.h"
#include "plg/boundary.h"
#include "plg/plg.h"
#include "reduce/axes.h"
#include "reduce/classify.h"
#include "reduce/fan.h"
#include "reduce/normals.h"
#include "reduce/passes.h"
#include "repair/degenerate.h"
#include "repair/orient.h"
#include "run/cycle.h"
#include "run/model.h"
#include "run/options.h"
#include "run/run_state.h"
#include "topo/edge_tbl.h"
#include "topo/topology.h"

#include <cstring>
#include <iterator>

namespace velmora::bench {

namespace {

constexpr std::uint32_t k_no_limit = 0x7fffffff;
constexpr std::int32_t k_silent = 100; // no line is for so high a verbosity

// Bytes of one record, and of what goes with it.
constexpr double k_obj = sizeof(cell_obj);
constexpr double k_tr = sizeof(tr_rec);
constexpr double k_vtx = sizeof(vtx_rec);
constexpr double k_info = sizeof(vtx_info) + sizeof(vtx_type);
constexpr double k_handle = 4;
constexpr double k_pos = 12;
constexpr double k_record = 50;               // in a file
constexpr double k_fans = 3 * k_handle;       // a triangle stands in three fans
constexpr double k_sides = 3 * 2 * k_handle;  // in the table of edges
constexpr double k_corners = 3 * k_handle;    // in the soup
constexpr double k_walk = k_obj + k_tr;       // objects and their triangles in order
constexpr double k_change = k_obj + 2 * k_tr; // the same, and triangles written
constexpr double k_places_per_tr = 3;         // lookups of positions

mesh_ctx* mesh()
{
    return &the_run.mesh;
}

stl_stream* open_stream(std::FILE* file, std::uint32_t direction)
{
    stl_stream* stream = stl_open();
    std::uint32_t format = stl_format_binary;
    char id[80];
    std::strncpy(id, k_version_id, sizeof id);
    stl_set(stream, stl_prop_handle, file);
    if (direction == stl_writing) stl_set(stream, stl_prop_id, id);
    stl_set(stream, stl_prop_format, &format);
    stl_set(stream, stl_prop_direction, &direction);
    return stream;
}

bool read_soup(step_run* run)
{
    stl_stream* stream = open_stream(run->in, stl_reading);
    std::int32_t err = err_none;
    const stage_result result =
        stl_load_model(&run->soup, &run->box, k_no_limit, stream, nullptr, &err);
    stl_close(stream);
    return result == stage_ok && err == err_none;
}

bool plant(step_run* run)
{
    mesh()->root = cell_tree_new(run->box, 0, 0, 2 * run->soup.count, mesh());
    return mesh()->root &&
           soup_plant(&run->soup, plant_welded, reader_margin(), mesh()) == plant_done;
}

bool renumber(step_run*)
{
    renumber_mesh(renumber_all, mesh());
    return true;
}

bool reset(step_run*)
{
    reset_orientation(mesh());
    return true;
}

bool link_up(step_run* run)
{
    std::int32_t err;
    the_run.topo.reuse = run->turn == 0 ? 0 : 1;
    return (run->turn == 0 ? topo_build(&err, mesh()) : topo_update(&err, mesh())) == stage_ok;
}

bool orient(step_run*)
{
    std::int32_t err;
    the_run.topo.orient_a = the_run.topo.orient_b = 1;
    return orient_components(&the_run.topo, &err, mesh()) == stage_ok;
}

bool label_axes(step_run*)
{
    label_tr_axes(mesh());
    return true;
}

bool remove_degenerates(step_run*)
{
    std::int32_t err;
    return remove_degenerates_pass(static_cast<double>(merge_tol), &err, mesh()) == stage_ok;
}

bool fill_table(step_run*)
{
    std::int32_t err;
    return vtx_table_init(mesh()->tr_count, &the_run.table, &err) == stage_ok &&
           vtx_table_fill(&the_run.table, mesh()) == stage_ok;
}

bool walk_fans(step_run*)
{
    std::int32_t err;
    return vtx_table_refresh(&the_run.table, &err, mesh()) == stage_ok;
}

bool find_normals(step_run*)
{
    vtx_nrm_all(&the_run.table);
    return true;
}

bool trace(step_run*)
{
    std::int32_t err;
    if (!trace_boundaries(&err, mesh())) return false;
    plg_vtx_nrm_all(the_run.topo);
    return true;
}

bool classify(step_run*)
{
    vtx_classify_all(&the_run.table, the_run.params);
    return true;
}

bool pass(step_run*)
{
    pass_counts counts;
    reduce_passes(&the_run.table, the_run.params, &counts);
    return true;
}

bool drop_table(step_run*)
{
    topo_ctx* topo = &the_run.topo;
    plg_list_free(&topo->plg_list);
    topo->plg_count = 0;
    list_free(&topo->edge_err_list);
    list_free(&topo->lone_list);
    topo->lone_count = 0;
    edge_tbl_free(&topo->edge_errs);
    vtx_table_free(&the_run.table);
    return true;
}

bool renew(step_run*)
{
    std::int32_t err;
    return rebuild_cell_tree(&err, mesh()) == stage_ok;
}

bool write(step_run* run)
{
    the_options.output_stream = open_stream(run->out, stl_writing);
    std::int32_t err = err_none;
    write_output(&err, mesh());
    const bool closed = stl_close(the_options.output_stream) != 0;
    the_options.output_stream = nullptr;
    return closed && err == err_none;
}

bool free_tree(step_run*)
{
    cell_tree_discard(mesh());
    return true;
}

} // namespace

const step k_steps[] = {
    {"read", step_at_start, read_soup, {2 * k_record + k_corners, k_pos, 0, k_places_per_tr}},
    {"tree", step_at_start, plant, {k_corners + k_walk, k_pos + k_vtx, k_handle, 0}},
    {"renumbering", step_between_turns, renumber, {2 * k_walk, 2 * k_vtx, 2 * k_handle, 0}},
    {"reset", step_between_turns, reset, {k_change, 0, 0, 0}},
    {"links", step_in_turn, link_up, {k_change + 2 * k_sides, 2 * k_handle, 0, 0}},
    {"orientation", step_in_turn, orient, {k_change + k_sides, k_vtx, 0, 0}},
    {"axis labels", step_in_turn, label_axes, {k_walk, 0, 0, 0}},
    {"degenerates", step_in_turn, remove_degenerates, {k_walk, 0, 0, 0}},
    {"vertex table", step_in_turn, fill_table, {k_walk, 2 * k_vtx + k_info, 0, 0}},
    {"fans", step_in_turn, walk_fans, {k_walk + k_fans, k_vtx + 2 * k_info, k_handle, 0}},
    {"vertex normals", step_in_turn, find_normals, {k_fans + k_tr, 2 * k_info, 0, 0}},
    {"boundaries", step_in_turn, trace, {k_walk, 0, k_handle, 0}},
    {"classification", step_in_turn, classify, {k_fans + k_tr, k_vtx + 2 * k_info, 0, 0}},
    {"passes", step_in_turn, pass, {k_fans + 2 * k_tr, 2 * k_vtx + 2 * k_info, 0, 0}},
    {"table freed", step_in_turn, drop_table, {0, k_info + 2 * k_vtx, 0, 0}},
    {"tree anew", step_in_turn, renew, {2 * k_obj + k_tr, k_vtx, k_handle, 0}},
    {"write", step_at_end, write, {k_walk + 2 * k_record, k_vtx, k_handle, 0}},
    {"tree freed", step_at_end, free_tree, {k_obj, 0, k_handle, 0}},
};
const int k_step_count = static_cast<int>(std::size(k_steps));

void step_run_init(std::FILE* in, std::FILE* out, step_run* run)
{
    *run = {in, out, {}, {}, 0};
    prepare_large_blocks();
    init_run();
    the_options.input_file = the_options.output_file = the_options.removed_file = nullptr;
    the_options.verbosity = k_silent;
    the_run.params = {0.05, 0.9, k_no_angle_limit, 0.0, 0.0, 0.0, 0.0, mode_dist};
}

void step_run_free(step_run* run)
{
    soup_free(&run->soup);
    free_run();
}

const step* find_step(const char* name)
{
    for (const step& s : k_steps)
        if (std::strcmp(s.name, name) == 0) return &s;
    return nullptr;
}

bool run_up_to(const step* last, step_run* run)
{
    for (const step& s : k_steps) {
        if (&s == last) return true;
        const bool in_first_turn = s.when == step_at_start || s.when == step_in_turn;
        if (in_first_turn && !s.go(run)) return false;
    }
    return true;
}

mesh_size size_of_mesh(const step_run& run)
{
    if (!mesh()->root)
        return {static_cast<double>(run.soup.count), static_cast<double>(run.soup.place_count),
                0.0};
    mesh_size size = {static_cast<double>(mesh()->tr_count), static_cast<double>(vtx_pool.used),
                      0.0};
    walk_leaves(mesh()->root, everywhere, [&](const cell_node& leaf) {
        size.entries += leaf.list.count;
        return true;
    });
    return size;
}

} // namespace velmora::bench
