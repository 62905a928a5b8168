#include "files/os_file.h"
#include "mesh/log.h"
#include "mesh/memory.h"
#include "mesh/tolerances.h"
#include "run/errors.h"
#include "run/options.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace velmora {

namespace {

constexpr std::size_t k_name_max = 260;    ///< characters of a file name, its end not counted
constexpr std::size_t k_extension_max = 5; ///< characters that tell a form, the point included

constexpr const char* k_ascii_extension = ".astl";
constexpr const char* k_binary_extension = ".stl";
constexpr const char* k_kvd_extension = ".kvd";

/// The bits that tell the form of one file.
struct form_bits {
    std::uint64_t ascii;
    std::uint64_t binary;
    std::uint64_t kvd;
};

constexpr form_bits k_input_form = {input_is_ascii, input_is_binary, input_is_kvd};
constexpr form_bits k_output_form = {output_is_ascii, output_is_binary, output_is_kvd};
constexpr form_bits k_removed_form = {removed_is_ascii, removed_is_binary, 0};

// Buffers for large files; one input and one output of a model are open at a time.
constexpr std::size_t k_file_buffer_size = 1 << 18;
char read_buffer[k_file_buffer_size];
char write_buffer[k_file_buffer_size];

} // namespace

bool has_extension(const char* path)
{
    if (!path || std::strcmp(path, ".") == 0) return false;
    for (std::size_t i = std::strlen(path); i-- > 0;) {
        if (path[i] == '/') return false;
        if (path[i] == '.') return true;
    }
    return false;
}

const char* file_extension(const char* name, std::size_t limit)
{
    if (!name) return "";
    const char* slash = std::strrchr(name, '/');
    const char* point = std::strrchr(slash ? slash : name, '.');
    return point && std::strlen(point) <= limit ? point : "";
}

static bool refuse_name(const char* direction)
{
    log_line("%s: path to \"%s\" is too long.\n", k_program_name, direction);
    return false;
}

// `name` has room for k_name_max characters and its end.
static bool append_extension(char* name, const char* extension, const char* direction)
{
    const std::size_t length = std::strlen(name);
    const std::size_t added = std::strlen(extension);
    if (length + added > k_name_max) return refuse_name(direction);
    std::memcpy(name + length, extension, added + 1);
    return true;
}

// Where a read can be short or late, or somebody waits at the other end, the C library knows better
// how much to move at once.
static void use_large_buffer(std::FILE* file, char* buffer)
{
    if (is_regular_file(file)) std::setvbuf(file, buffer, _IOFBF, k_file_buffer_size);
}

static std::FILE* open_to_read(const char* name)
{
    std::FILE* file = os_open(name, "rb");
    if (file) use_large_buffer(file, read_buffer);
    return file;
}

static std::FILE* read_named(char* name, const char* extension, const char** reason)
{
    std::FILE* file = open_to_read(name);
    if (!file && !has_extension(name)) {
        if (!append_extension(name, extension, "input")) return nullptr;
        file = open_to_read(name);
    }
    if (!file) *reason = system_error_text(errno);
    return file;
}

// Emptying a file that the run still reads, or writes already, would lose it.
static std::FILE* write_named(char* name, const char* extension, const kept_files& kept,
                              const char** reason)
{
    if (!has_extension(name) && !append_extension(name, extension, "output")) return nullptr;
    if (is_same_file(name, kept.input)) {
        *reason = "it is the input file";
        return nullptr;
    }
    if (is_same_file(name, kept.output)) {
        *reason = "it is the output file";
        return nullptr;
    }
    std::FILE* file = os_open(name, "wb");
    if (!file) *reason = system_error_text(errno);
    return file;
}

static void log_unopened(bool reading, const char* mode, const char* name, const char* extension,
                         const char* reason)
{
    if (reading) {
        log_line("%s: unable to access (mode:%s) neither \"%s\" nor \"<ditto>%s\" (%s)\n",
                 k_program_name, mode, name, extension, reason);
        return;
    }
    log_line("%s: unable to access (mode:%s) \"%s\" (%s)\n", k_program_name, mode, name, reason);
}

static bool refuse_memory()
{
    log_line("%s: unable to allocate additional memory.\n", k_program_name);
    return false;
}

bool open_file(const char* name, std::FILE** handle_out, const char* mode, const char* extension,
               char** name_out, const kept_files& kept)
{
    char* real_name = static_cast<char*>(heap_alloc(k_name_max + 1));
    if (!real_name) return refuse_memory();
    const std::size_t length = std::min(std::strlen(name), k_name_max);
    std::memcpy(real_name, name, length);
    real_name[length] = '\0';

    const bool reading = mode[0] == 'r';
    const char* reason = nullptr; // stays null after a complaint about the length
    std::FILE* file = reading ? read_named(real_name, extension, &reason)
                              : write_named(real_name, extension, kept, &reason);
    if (!file) {
        if (reason) log_unopened(reading, mode, name, extension, reason);
        heap_free(real_name);
        return false;
    }
    *handle_out = file;
    *name_out = real_name;
    return true;
}

static void keep_name(char* name, run_options* opt)
{
    opt->owned_names[opt->owned_count++] = name;
}

static void settle_merge_tol(run_options* opt)
{
    if (is_given(*opt, given_merge_tol)) {
        if (opt->merge_tol_opt == 0.0) {
            log_line("%s(WARNING): 0.0 point merge tolerance used.\n", k_program_name);
        }
        return;
    }
    opt->given |= given_merge_tol;
    opt->merge_tol_opt = static_cast<double>(merge_tol);
    log_line("%s(info): default %1.6f point merge tolerance used.\n", k_program_name,
             opt->merge_tol_opt);
}

static bool require_option(const run_options& opt, std::uint64_t bit, char letter)
{
    if (is_given(opt, bit)) return true;
    log_line("%s: the option \"%c\" is missing and is required.\n", k_program_name, letter);
    return false;
}

static bool has_required(const run_options& opt)
{
    if (is_given(opt, given_min_edge)) return true;
    return require_option(opt, given_dist_tol, 'r') && require_option(opt, given_angle_tol, 'c');
}

static void log_modes(const run_options& opt)
{
    if (is_given(opt, given_multi_pass)) {
        log_line("%s(info): multiple pass reduction is enabled\n", k_program_name);
    }
    if (is_given(opt, given_shape)) {
        log_line("%s(info): shape optimization is enabled\n", k_program_name);
    }
}

static std::uint64_t all_forms(const form_bits& form)
{
    return form.ascii | form.binary | form.kvd;
}

// 0 when the extension tells nothing. Behind ".stl" one more letter is let pass.
static std::uint64_t form_of_name(const char* name, const form_bits& form)
{
    const char* extension = file_extension(name, k_extension_max);
    if (std::strncmp(extension, k_binary_extension, 4) == 0) return form.binary;
    if (std::strcmp(extension, k_ascii_extension) == 0) return form.ascii;
    if (std::strcmp(extension, k_kvd_extension) == 0) return form.kvd;
    return 0;
}

// The form that `to` takes when it follows the file of `from`; 0 when it has no such form.
static std::uint64_t same_form(const run_options& opt, const form_bits& from, const form_bits& to)
{
    if (is_given(opt, from.ascii)) return to.ascii;
    if (is_given(opt, from.binary)) return to.binary;
    return is_given(opt, from.kvd) ? to.kvd : 0;
}

static const char* form_extension(const run_options& opt, const form_bits& form)
{
    if (is_given(opt, form.ascii)) return k_ascii_extension;
    if (is_given(opt, form.binary)) return k_binary_extension;
    return is_given(opt, form.kvd) ? k_kvd_extension : nullptr;
}

static void settle_input_form(run_options* opt)
{
    if (is_given(*opt, all_forms(k_input_form))) return;
    if (!is_given(*opt, given_input)) {
        opt->given |= input_is_binary;
        return;
    }
    const std::uint64_t form = form_of_name(opt->input_name, k_input_form);
    opt->given |= form ? form : input_is_binary;
    if (form) return;
    log_line("%s(WARNING): input file format is assumed to be binary STL.\n", k_program_name);
}

static void settle_output_form(run_options* opt)
{
    if (is_given(*opt, all_forms(k_output_form))) return;
    if (is_given(*opt, given_output)) opt->given |= form_of_name(opt->output_name, k_output_form);
    if (is_given(*opt, all_forms(k_output_form))) return;
    opt->given |= same_form(*opt, k_input_form, k_output_form);
}

// Goes by the name of the output, not by its own.
static void settle_removed_form(run_options* opt)
{
    if (is_given(*opt, all_forms(k_removed_form))) return;
    if (is_given(*opt, given_removed) && is_given(*opt, given_output)) {
        opt->given |= form_of_name(opt->output_name, k_removed_form);
    }
    if (is_given(*opt, all_forms(k_removed_form))) return;
    opt->given |= same_form(*opt, k_input_form, k_removed_form);
}

static bool open_input(run_options* opt)
{
    if (!is_given(*opt, given_input)) {
        opt->input_name = "<stdin>";
        return true;
    }
    char* name = nullptr;
    const char* extension = form_extension(*opt, k_input_form);
    if (!open_file(opt->input_name, &opt->input_file, "rb", extension, &name, {})) return false;
    keep_name(name, opt);
    opt->input_name = name;
    return true;
}

static bool wants_in_place(const run_options& opt)
{
    return is_given(opt, given_input) && is_given(opt, given_output) && opt.output_name[0] == '=';
}

static bool is_empty_file(std::FILE* file)
{
    std::uint64_t size = 1;
    return is_regular_file(file, &size) && size == 0;
}

// A run in place that failed leaves an empty file under the name of its input. To take that for the
// input of the next run would put it in the place of the model, which stands under the other name.
static bool would_lose_model(std::FILE* input, const char* moved)
{
    if (!is_empty_file(input)) return false;
    std::FILE* kept = os_open(moved, "rb");
    if (!kept) return false;
    const bool holds_something = !is_empty_file(kept);
    std::fclose(kept);
    if (holds_something)
        log_unopened(false, "wb", moved, "", "it would be lost, and the input is empty");
    return holds_something;
}

// The open handle goes on reading the file under its new name.
static bool move_input_aside(run_options* opt)
{
    if (!wants_in_place(*opt)) return true;
    opt->given |= output_in_place;
    opt->output_name = opt->input_name;

    const std::size_t length = std::strlen(opt->input_name);
    char* moved = static_cast<char*>(heap_alloc(length + 2));
    if (!moved) return refuse_memory();
    std::memcpy(moved, opt->input_name, length);
    std::memcpy(moved + length, "~", 2);
    keep_name(moved, opt);
    opt->moved_name = moved;
    if (!is_regular_file(opt->input_file)) { // to take a device away from its name breaks more
        log_unopened(false, "wb", opt->input_name, "", "only a plain file can be replaced");
        return false;
    }
    if (would_lose_model(opt->input_file, moved)) return false;
    return os_rename(opt->input_name, moved);
}

static bool open_output(run_options* opt)
{
    if (!is_given(*opt, given_output)) {
        opt->output_name = "<stdout>";
        return true;
    }
    char* name = nullptr;
    const char* extension = form_extension(*opt, k_output_form);
    const kept_files kept = {opt->input_file, nullptr};
    if (!open_file(opt->output_name, &opt->output_file, "wb", extension, &name, kept)) return false;
    if (opt->output_file) use_large_buffer(opt->output_file, write_buffer);
    keep_name(name, opt);
    opt->output_name = name;
    return true;
}

static bool open_removed(run_options* opt)
{
    if (!is_given(*opt, given_removed)) {
        opt->removed_name = "<stdout>";
        return true;
    }
    char* name = nullptr;
    const char* extension = form_extension(*opt, k_removed_form);
    if (!extension) extension = form_extension(*opt, k_output_form);
    const kept_files kept = {opt->input_file, opt->output_file};
    if (!open_file(opt->removed_name, &opt->removed_file, "wb", extension, &name, kept)) {
        return false;
    }
    keep_name(name, opt);
    opt->removed_name = name;
    return true;
}

bool finish_options(run_options* opt)
{
    settle_merge_tol(opt);
    if (is_given(*opt, given_kill)) kill_value = opt->kill_opt;
    if (!has_required(*opt)) return false;
    log_modes(*opt);

    settle_input_form(opt);
    settle_output_form(opt);
    settle_removed_form(opt);

    return open_input(opt) && move_input_aside(opt) && open_output(opt) && open_removed(opt);
}

} // namespace velmora
