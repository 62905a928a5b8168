// bench/kernels.cpp - the hot kernels, each alone, by Google Benchmark.
//
// The model is the sphere with 100,000 triangles, in file order and shuffled. Each kernel gets a
// mesh that is fresh up to the place in a run at which it works; making that is not measured.

#include "files/model_io.h"
#include "files/stl_number.h"
#include "files/stl_stream.h"
#include "mesh/cell_tree.h"
#include "mesh/soup_plant.h"
#include "mesh/soup_spacing.h"
#include "repair/edge_groups.h"
#include "repair/edge_sort.h"
#include "run/run_state.h"
#include "shapes.h"
#include "steps.h"
#include "topo/links.h"
#include "topo/merge.h"
#include "topo/topology.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

using namespace velmora;
using namespace velmora::bench;

constexpr std::uint64_t k_triangles = 100000;

/// Nothing here can fail but for want of memory or disk.
void demand(bool done, const char* what)
{
    if (done) return;
    std::fprintf(stderr, "kernels: %s failed\n", what);
    std::exit(1);
}

std::vector<stl_tri> make_triangles(bool shuffled)
{
    const model m = make_model(shape_sphere, k_triangles, 1);
    std::vector<stl_tri> trs(m.count);
    for (std::uint64_t i = 0; i < m.count; ++i) {
        const triangle tr = model_triangle(m, shuffled ? shuffled_index(m, i) : i);
        trs[i] = {};
        std::memcpy(trs[i].corner1, tr.vtx[0], sizeof trs[i].corner1);
        std::memcpy(trs[i].corner2, tr.vtx[1], sizeof trs[i].corner2);
        std::memcpy(trs[i].corner3, tr.vtx[2], sizeof trs[i].corner3);
    }
    return trs;
}

const std::vector<stl_tri>& triangles(bool shuffled)
{
    static const std::vector<stl_tri> trs[2] = {make_triangles(false), make_triangles(true)};
    return trs[shuffled];
}

std::uint32_t count()
{
    return static_cast<std::uint32_t>(triangles(false).size());
}

stl_stream* open_stream(std::FILE* file, std::uint32_t format, std::uint32_t direction)
{
    stl_stream* stream = stl_open();
    char id[] = "kernels";
    stl_set(stream, stl_prop_handle, file);
    stl_set(stream, stl_prop_id, id);
    stl_set(stream, stl_prop_format, &format);
    stl_set(stream, stl_prop_direction, &direction);
    return stream;
}

void write_file(std::FILE* file, std::uint32_t format, bool shuffled)
{
    std::rewind(file);
    stl_stream* stream = open_stream(file, format, stl_writing);
    for (const stl_tri& tri : triangles(shuffled))
        demand(stl_put_triangle(stream, &tri) != 0, "writing");
    demand(stl_close(stream) != 0 && std::fflush(file) == 0, "writing");
}

void write_records(benchmark::State& state, std::uint32_t format)
{
    std::FILE* file = std::tmpfile();
    triangles(false);
    for ([[maybe_unused]] auto _ : state)
        write_file(file, format, false);
    std::fclose(file);
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * count());
}

void read_records(benchmark::State& state, std::uint32_t format)
{
    std::FILE* file = std::tmpfile();
    write_file(file, format, false);
    for ([[maybe_unused]] auto _ : state) {
        std::rewind(file);
        stl_stream* stream = open_stream(file, format, stl_reading);
        stl_tri tri;
        std::uint32_t read = 0;
        while (stl_get_triangle(stream, &tri) != 0)
            ++read;
        stl_close(stream);
        demand(read == count(), "reading");
    }
    std::fclose(file);
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * count());
}

void write_numbers(benchmark::State& state)
{
    char text[k_fixed_size];
    for ([[maybe_unused]] auto _ : state)
        for (const stl_tri& tri : triangles(false))
            for (const float f : tri.corner1)
                benchmark::DoNotOptimize(put_fixed(text, f));
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * 3 * count());
}

/// By the long way, which takes any decimal; the reader takes it for few.
void read_numbers(benchmark::State& state)
{
    std::vector<std::string> texts;
    char text[k_fixed_size];
    for (const stl_tri& tri : triangles(false))
        texts.emplace_back(text, static_cast<std::size_t>(put_fixed(text, tri.corner1[0]) - text));
    stl_decimal decimal;
    for ([[maybe_unused]] auto _ : state) {
        for (const std::string& digits : texts) {
            decimal_clear(&decimal);
            for (const char c : digits) {
                if (c >= '0' && c <= '9') decimal_add_digit(&decimal, c);
            }
            benchmark::DoNotOptimize(decimal_value(&decimal, -6));
        }
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * count());
}

/// A run that stands where a kernel works, and what kernels find there.
struct bench_mesh {
    step_run run;
    obj_list list;
};

struct kernel {
    const char* name;
    const char* next; ///< the mesh is taken to where this step is next; null: to a second turn
    void (*prepare)(bench_mesh* mesh); ///< not measured; may be null
    bool (*go)(bench_mesh* mesh);
};

std::int32_t err;

void list_objects(bench_mesh* mesh)
{
    demand(collect_objs(&mesh->list, &err, &the_run.mesh) == stage_ok, "listing");
}

void make_root(bench_mesh* mesh)
{
    mesh_ctx* ctx = &the_run.mesh;
    ctx->root = cell_tree_new(mesh->run.box, 0, 0, 2 * mesh->run.soup.count, ctx);
    demand(static_cast<bool>(ctx->root), "making the tree");
}

void make_objects(bench_mesh* mesh)
{
    make_root(mesh);
    demand(soup_to_list(mesh->run.soup, reader_margin(), &mesh->list), "making objects");
}

void plant_without_welding(bench_mesh* mesh)
{
    make_root(mesh);
    demand(soup_plant(&mesh->run.soup, plant_apart, reader_margin(), &the_run.mesh) == plant_done,
           "planting");
}

void group_edges(bench_mesh*)
{
    edge_groups_build(&the_run.sides, &the_run.mesh);
}

bool weld(bench_mesh* mesh)
{
    tr_soup again = {};
    bool done = true;
    float corners[3][3];
    for (std::uint32_t t = 0; t < mesh->run.soup.count && done; ++t) {
        for (std::uint32_t i = 0; i < 3; ++i)
            std::memcpy(corners[i], soup_pos(mesh->run.soup, t, i), sizeof corners[i]);
        done = soup_add(&again, corners);
    }
    soup_finish(&again);
    std::uint8_t* close = nullptr;
    done = done && soup_spacing(again, &close) != places_unknown;
    heap_free(close);
    soup_free(&again);
    return done;
}

bool add_to_tree(bench_mesh* mesh)
{
    for (const obj_h o : mesh->list)
        if (!tree_add(o, nullptr, &the_run.mesh)) return false;
    return true;
}

bool merge(bench_mesh*)
{
    return merge_vertices(&err, &the_run.mesh) == stage_ok;
}

bool sort_edges(bench_mesh* mesh)
{
    edge_sort table = {};
    const bool done = edge_sort_build(mesh->list, &table) && edge_sort_run(&table);
    edge_sort_free(&table);
    return done;
}

bool visit_edge_groups(bench_mesh* mesh)
{
    group_edges(mesh);
    std::uint32_t edges = 0;
    for_each_edge_group(&the_run.sides, [&](const edge_group&) { ++edges; });
    return edges != 0;
}

bool link(bench_mesh*)
{
    return link_nbrs(&the_run.topo, &err, &the_run.mesh) == stage_ok;
}

const kernel k_kernels[] = {
    {"weld", "tree", nullptr, weld},
    {"tree, object by object", "tree", make_objects, add_to_tree},
    {"merge", "tree", plant_without_welding, merge},
    {"edges, sorted", "links", list_objects, sort_edges},
    {"edges, grouped", "links", nullptr, visit_edge_groups},
    {"link pass", "links", group_edges, link},
};

/// The temporary file with the model, at its start.
std::FILE* model_file(bool shuffled)
{
    static std::FILE* files[2];
    if (!files[shuffled]) {
        files[shuffled] = std::tmpfile();
        write_file(files[shuffled], stl_format_binary, shuffled);
    }
    std::rewind(files[shuffled]);
    return files[shuffled];
}

void time_kernel(benchmark::State& state, const kernel& k, bool shuffled)
{
    std::FILE* out = std::tmpfile();
    for ([[maybe_unused]] auto _ : state) {
        state.PauseTiming();
        bench_mesh mesh = {};
        step_run_init(model_file(shuffled), out, &mesh.run);
        demand(run_up_to(k.next ? find_step(k.next) : nullptr, &mesh.run), k.name);
        if (k.prepare) k.prepare(&mesh);
        state.ResumeTiming();
        const bool done = k.go(&mesh);
        state.PauseTiming();
        demand(done, k.name);
        list_free(&mesh.list);
        step_run_free(&mesh.run);
        state.ResumeTiming();
    }
    std::fclose(out);
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * count());
}

void time_step(benchmark::State& state, const step& s, bool shuffled)
{
    std::FILE* out = std::tmpfile();
    for ([[maybe_unused]] auto _ : state) {
        state.PauseTiming();
        step_run run;
        step_run_init(model_file(shuffled), out, &run);
        demand(run_up_to(s.when == step_between_turns ? nullptr : &s, &run), s.name);
        state.ResumeTiming();
        const bool done = s.go(&run);
        state.PauseTiming();
        demand(done, s.name);
        step_run_free(&run);
        state.ResumeTiming();
    }
    std::fclose(out);
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * count());
}

/// What is prepared anew for each iteration takes longer than what is measured: few iterations.
template <class fn_t> void add_prepared(const std::string& name, const fn_t& fn)
{
    constexpr int k_iterations = 3;
    constexpr int k_repetitions = 3;
    benchmark::RegisterBenchmark(name.c_str(), fn)
        ->Iterations(k_iterations)
        ->Repetitions(k_repetitions)
        ->ReportAggregatesOnly()
        ->Unit(benchmark::kMillisecond);
}

template <class fn_t> void add_plain(const char* name, const fn_t& fn)
{
    constexpr double k_seconds = 0.1;
    constexpr int k_repetitions = 3;
    benchmark::RegisterBenchmark(name, fn)
        ->MinTime(k_seconds)
        ->Repetitions(k_repetitions)
        ->ReportAggregatesOnly()
        ->Unit(benchmark::kMillisecond);
}

void add_all()
{
    add_plain("binary records, written",
              [](benchmark::State& s) { write_records(s, stl_format_binary); });
    add_plain("binary records, read",
              [](benchmark::State& s) { read_records(s, stl_format_binary); });
    add_plain("ASCII facets, written",
              [](benchmark::State& s) { write_records(s, stl_format_ascii); });
    add_plain("ASCII facets, read", [](benchmark::State& s) { read_records(s, stl_format_ascii); });
    add_plain("numbers to text", write_numbers);
    add_plain("text to numbers", read_numbers);
    for (const bool shuffled : {false, true}) {
        const std::string suffix = shuffled ? ", shuffled" : "";
        for (const kernel& k : k_kernels)
            add_prepared(k.name + suffix,
                         [&k, shuffled](benchmark::State& s) { time_kernel(s, k, shuffled); });
        for (int i = 0; i < k_step_count; ++i)
            add_prepared(
                "step: " + std::string(k_steps[i].name) + suffix,
                [i, shuffled](benchmark::State& s) { time_step(s, k_steps[i], shuffled); });
    }
}

} // namespace

int main(int argc, char** argv)
{
    add_all();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
