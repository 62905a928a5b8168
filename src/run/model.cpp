#include "run/model.h"

#include "files/kvd.h"
#include "files/model_io.h"
#include "files/os_file.h"
#include "mesh/cell_tree.h"
#include "mesh/log.h"
#include "mesh/measure.h"
#include "run/errors.h"
#include "run/options.h"

#include <cerrno>

namespace velmora {

namespace {

constexpr std::int32_t k_info_verbosity = 5;
constexpr std::int32_t k_extents_verbosity = 6;
constexpr std::uint32_t k_most_triangles = 0x7fffffff;

bool output_reported = false; // the log already tells that the output failed

enum input_kind : std::uint32_t {
    input_stl = 1,
    input_movie = 2,
    input_wavefront = 3,
};

const char* name()
{
    return the_options.program_name;
}

bool not_yet(const char* kind)
{
    log_line("%s(ERROR): %s file input not yet implemented\n", name(), kind);
    return false;
}

// Only STL is ever set; the other kinds are where further readers go.
bool read_stl_model(model_input* in, std::int32_t* err, const mesh_ctx* ctx)
{
    const model_ctx& model = *ctx->model;
    switch (model.in_kind) {
    case input_stl:
        return stl_load_model(&in->soup, &in->bbox, k_most_triangles, model.in_stream,
                              ctx->topo->transform, err) == stage_ok;
    case input_movie:
        return not_yet("MOVIE-BYU");
    case input_wavefront:
        return not_yet("WAVEFRONT");
    default:
        return true;
    }
}

// A file is opened once more, by its name, and the run's own handle stays unread. What is no file
// can't be read twice, so there the reader gets a second handle.
stage_result read_kvd_model(model_input* in, std::int32_t* err, mesh_ctx* ctx)
{
    const auto read = [&](const char* path) {
        return kvd_read_model(path, &in->list, &in->count, &in->bbox, err, ctx);
    };
    if (!is_given(the_options, given_input)) return read(nullptr);
    if (!is_regular_file(the_options.input_file))
        return kvd_read_handle(os_second_handle(the_options.input_file), &in->list, &in->count,
                               &in->bbox, err);
    const char* moved = the_options.moved_name;
    return read(moved ? moved : the_options.input_name);
}

void log_stream_error(const stl_stream* stream, std::uint32_t count)
{
    std::uint32_t error = stl_err_none;
    const char* text = nullptr;
    log_line("%s(WARNING): input file error after %1d triangles.\n", name(),
             static_cast<int>(count));
    if (!stl_get(stream, stl_prop_error, &error) || error == stl_err_none) return;
    if (stl_get(stream, stl_prop_error_text, &text)) log_line("%s(WARNING): %s.\n", name(), text);
    if (error == stl_err_read)
        log_line("%s(WARNING): %s.\n", name(), system_error_text(input_errno()));
}

// For the whole output to be safe, nothing may be left in a buffer.
bool write_stl(const obj_list& list, std::uint32_t* count, std::int32_t* err, const topo_ctx& topo)
{
    *count = 0;
    for (const obj_h o : list) {
        const tr_h t = rec(o).tr;
        if (tr_collapsed(rec(t))) continue;
        if (!stl_write_tr(t, topo.transform, err, the_options.output_stream)) return false;
        ++*count;
    }
    if (stl_flush(the_options.output_stream)) return true;
    *err = err_stl_output;
    return false;
}

bool write_list(const obj_list& list, std::uint32_t* count, std::int32_t* err, mesh_ctx* ctx)
{
    if (!is_given(the_options, output_is_kvd)) return write_stl(list, count, err, *ctx->topo);
    *count = list.count;
    const bool to_stdout = !is_given(the_options, given_output);
    if (kvd_write_model(list, to_stdout ? nullptr : the_options.output_name, false, false))
        return true;
    *err = err_output;
    return false;
}

// A failed output is told once, however many of its last steps fail.
void report_output(std::int32_t number)
{
    if (!output_reported) report_error(number);
    output_reported = true;
}

std::int32_t output_error()
{
    return is_given(the_options, output_is_kvd) ? err_output : err_stl_output;
}

// Writes the end of the file. A stream that can't is given up without it.
bool finish_stream(stl_stream** stream)
{
    if (!*stream || stl_close(*stream)) {
        *stream = nullptr;
        return true;
    }
    discard_stream(stream);
    return false;
}

// A handle forgets what a flush could not hand over; its error mark remembers.
bool close_file(std::FILE** file)
{
    std::FILE* f = *file;
    *file = nullptr;
    if (!f) return true;
    const bool sound = std::ferror(f) == 0;
    return std::fclose(f) == 0 && sound;
}

} // namespace

stage_result read_model(model_input* in, std::int32_t* err, mesh_ctx* ctx)
{
    if (is_given(the_options, input_is_kvd)) return read_kvd_model(in, err, ctx);
    const bool done = read_stl_model(in, err, ctx);
    in->count = in->soup.count;
    if (the_options.input_stream && stl_error(the_options.input_stream))
        log_stream_error(the_options.input_stream, in->count);
    return done ? stage_ok : stage_failed;
}

void free_input(model_input* in)
{
    list_free(&in->list);
    soup_free(&in->soup);
}

void log_extents(const aabb& b)
{
    if (!logs_up_to(the_options, k_extents_verbosity)) return;
    const auto wide = [](float v) { return static_cast<double>(v); };
    log_line("%s(info): the ranges of the object are X=(%.1f,%.1f) Y=(%.1f,%.1f) Z=(%.1f,%.1f)\n",
             name(), wide(b.min[0]), wide(b.max[0]), wide(b.min[1]), wide(b.max[1]), wide(b.min[2]),
             wide(b.max[2]));
    log_line("%s(info): extents are X=%.2f Y=%.2f Z=%.2f\n", name(), wide(b.max[0] - b.min[0]),
             wide(b.max[1] - b.min[1]), wide(b.max[2] - b.min[2]));
}

void write_output(std::int32_t* err, mesh_ctx* ctx)
{
    obj_list list = {};
    std::uint32_t count = 0;
    output_reported = false;
    ++ctx->visit_stamp;
    const bool collected = tree_collect(ctx->root, &list, &count, ctx);
    if (!collected) *err = err_no_memory;
    if (!collected || !write_list(list, &count, err, ctx)) {
        report_output(*err);
    } else if (logs_up_to(the_options, k_info_verbosity)) {
        log_line("%s(info): wrote output file  \"%s\" : %1d triangles.\n", name(),
                 the_options.output_name, static_cast<int>(count));
    }
    list_free(&list);
}

void close_output()
{
    run_options& opt = the_options;
    const bool finished = finish_stream(&opt.output_stream);
    finish_stream(&opt.removed_stream);
    if (opt.removed_file == opt.output_file) opt.removed_file = nullptr;
    const bool closed = close_file(&opt.output_file);
    close_file(&opt.removed_file);
    if (!finished || !closed) report_output(output_error());
}

void discard_output()
{
    run_options& opt = the_options;
    discard_stream(&opt.output_stream);
    discard_stream(&opt.removed_stream);
    if (opt.removed_file == opt.output_file) opt.removed_file = nullptr;
    close_file(&opt.output_file);
    close_file(&opt.removed_file);
}

void discard_stream(stl_stream** stream)
{
    if (!*stream) return;
    std::uint32_t reading = stl_reading;
    stl_set(*stream, stl_prop_direction, &reading);
    stl_close(*stream);
    *stream = nullptr;
}

int input_errno()
{
    std::int32_t number = 0;
    if (the_options.input_stream) stl_get(the_options.input_stream, stl_prop_sys_errno, &number);
    return number ? number : errno;
}

} // namespace velmora
