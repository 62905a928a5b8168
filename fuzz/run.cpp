// The whole run: the bytes make a small model and an option line, and may have memory run out or
// Stop pressed on the way. The log must be honest: an output that it does not complain of can be
// read again.
#include "fuzz.h"
#include "mesh/memory.h"
#include "model.h"
#include "run/driver.h"
#include "run/ui.h"
#include "stl_roads.h"

#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

namespace velmora {

namespace {

enum class form {
    binary,
    ascii,
    native
};

constexpr const char* k_letters[] = {"b", "a", "m"};
constexpr const char* k_in_names[] = {"in.stl", "in.astl", "in.kvd"};
constexpr const char* k_out_names[] = {"out.stl", "out.astl", "out.kvd"};

constexpr const char* k_dists[] = {"0.1", "0.01", "1", "10", "1e30", "1e-30", "1e-6", "inf"};
constexpr const char* k_cosines[] = {"0.9", "0.5", "1", "-1", "0", "0.999", "nan", "-0.5"};
constexpr const char* k_lengths[] = {"1", "2.5", "0.1", "1e-30", "1e30", "100", "1e-300", "inf"};
constexpr const char* k_angles[] = {"0", "10", "20", "35", "60", "7.5", "nan", "30"};
constexpr const char* k_ratios[] = {"0", "0.1", "0.3", "0.5", "0.87", "nan", "0.01", "0.7"};
constexpr const char* k_merges[] = {"0.001", "1e-30", "0.5", "100",
                                    "1e30",  "1e-6",  "inf", "1e-300"};
constexpr const char* k_kills[] = {"inf", "1e38", "5", "nan", "1e300", "0", "-1", "100"};
constexpr const char* k_verbosities[] = {"3", "1", "4", "5", "6", "7", "-1", "2"};

/// One run, told by bytes.
struct job {
    form in;
    form out;
    bool piped; ///< from the standard input and to the standard output
    bool in_place;
    bool removed;       ///< -e
    std::uint32_t stop; ///< pumps that go well; 0: nobody stops the run
    std::uint64_t fail; ///< the allocation that fails; 0: none
    std::string options;
    std::string model;
};

std::uint32_t pumps_left = 0;
bool pump_counts = false;

const ui_ops k_stopping_shell = {
    [](const char*) {},
    [] {},
    [](int, const char*) {},
    [] {},
    [] {},
    [](int) {},
    [] { return !pump_counts || pumps_left-- > 0 ? 1 : 0; },
    [](const char*) {},
    [] {},
    [] {},
};

std::string option(const char* letter, const char* const (&values)[8], std::uint32_t pick)
{
    return std::string(" -") + letter + " " + values[pick % 8];
}

// One byte for each option that takes a value: below 128 it is left out, or has its usual value.
std::string make_options(byte_source* bytes)
{
    const std::uint8_t mode = bytes->next();
    std::string line = " -q " + std::to_string(mode % 6);
    if (mode & 0x40) line += " -S";
    if (mode & 0x80) line += " -P";
    const std::uint8_t dist = bytes->next();
    line += option("r", k_dists, dist) + option("c", k_cosines, dist >> 3);
    const struct {
        const char* letter;
        const char* const (&values)[8];
    } rows[] = {{"a", k_angles},  {"h", k_ratios}, {"i", k_lengths}, {"j", k_lengths},
                {"g", k_lengths}, {"m", k_merges}, {"K", k_kills},   {"V", k_verbosities}};
    const std::uint8_t used = bytes->next();
    for (std::size_t i = 0; i < 8; ++i)
        if (used >> i & 1) line += option(rows[i].letter, rows[i].values, bytes->next());
    return line;
}

job make_job(const std::uint8_t* data, std::size_t size)
{
    byte_source bytes = {data, size};
    job j = {};
    const std::uint8_t files = bytes.next();
    j.in = static_cast<form>(files % 3);
    j.out = static_cast<form>(files / 3 % 3);
    j.piped = files / 9 % 4 == 3;
    j.in_place = files / 36 % 4 == 3;
    j.removed = files >= 144;
    const std::uint8_t trouble = bytes.next();
    if (trouble > 250) j.stop = 1 + bytes.next();
    if (trouble > 200 && trouble <= 250) j.fail = 1 + bytes.next() + 256u * bytes.below(4);
    j.options = make_options(&bytes);
    const fuzz_model model = make_model(&bytes);
    if (j.in == form::binary) j.model = as_binary_stl(model);
    if (j.in == form::ascii) j.model = as_ascii_stl(model);
    if (j.in == form::native) j.model = as_kvd(model, &bytes);
    return j;
}

std::string file_options(const job& j)
{
    const auto in = static_cast<std::size_t>(j.in);
    const auto out = static_cast<std::size_t>(j.out);
    const std::string removed = j.removed ? " -e gone.stl -E b" : "";
    const std::string forms = std::string(" -F ") + k_letters[in] + " -O " + k_letters[out];
    if (j.piped) return forms + removed;
    return std::string(" -f ") + k_in_names[in] + " -o " + (j.in_place ? "=" : k_out_names[out]) +
           forms + removed;
}

/// What is left after a run.
struct outcome {
    int result;
    std::string log;
    std::string out;
    std::string removed;
};

int run_words(const std::string& line)
{
    std::istringstream text(line);
    std::vector<std::string> words;
    for (std::string word; text >> word;)
        words.push_back(word);
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    return velmora_main(static_cast<int>(words.size()), argv.data());
}

std::string in_name(const job& j)
{
    return k_in_names[static_cast<std::size_t>(j.in)];
}

std::string out_name(const job& j)
{
    return j.in_place ? in_name(j) : k_out_names[static_cast<std::size_t>(j.out)];
}

void demand_input_kept(const job& j)
{
    if (j.piped) return;
    const std::string moved = in_name(j) + "~";
    const bool kept = read_file(in_name(j).c_str()) == j.model;
    demand(kept || (j.in_place && read_file(moved.c_str()) == j.model), "the input as it was");
}

outcome run_job(const job& j)
{
    empty_own_folder();
    write_file(in_name(j).c_str(), j.model);
    const kept_log log;
    const own_streams streams(reinterpret_cast<const std::uint8_t*>(j.model.data()),
                              j.model.size());
    pump_counts = j.stop != 0;
    pumps_left = j.stop;
    ui_install(&k_stopping_shell);
    heap_fail_nth(j.fail);
    outcome o = {};
    const std::string line = "velmora" + file_options(j) + j.options;
    if (std::getenv("VELMORA_FUZZ_SHOW")) std::fprintf(stderr, "%s\n", line.c_str());
    o.result = run_words(line);
    heap_fail_nth(0);
    ui_install(nullptr);
    o.log = log.text();
    o.out = j.piped ? streams.out() : read_file(out_name(j).c_str());
    o.removed = read_file("gone.stl");
    demand_input_kept(j);
    return o;
}

bool holds(const std::string& text, const char* part)
{
    return text.find(part) != std::string::npos;
}

std::uint32_t word_at(const std::string& bytes, std::size_t at)
{
    std::uint32_t word = 0;
    std::memcpy(&word, bytes.data() + at, sizeof word);
    return word;
}

// An output without triangles has no header either.
void demand_readable(const std::string& file, std::uint32_t format)
{
    if (file.empty() || (format == stl_format_ascii && holds(file, "inf "))) return;
    const auto* data = reinterpret_cast<const std::uint8_t*>(file.data());
    const stl_reading_seen seen =
        read_stl(data, file.size(), {format, 0, false, false}, stl_road::blocks);
    demand(seen.error == stl_err_none, "a finished output that can be read");
    if (format == stl_format_binary)
        demand(file.size() == 84 + 50 * seen.tris.size(), "as many triangles as there are bytes");
}

// On the standard output the count is never filled in.
void demand_honest(const job& j, const outcome& o)
{
    const bool finished = holds(o.log, "wrote output file") && !holds(o.log, "output error");
    const bool told = o.result != 0 || holds(o.log, "memory") || holds(o.log, "output error") ||
                      holds(o.log, "error number 0.") || holds(o.log, "program aborted") ||
                      holds(o.log, " 0 triangles read.");
    const bool gated = holds(j.options, "-V 6") || holds(j.options, "-V 7");
    demand(finished || told || gated, "a word about an output that was not finished");
    if (!finished || j.stop != 0 || j.out == form::native) return;
    demand_readable(o.out, j.out == form::ascii ? stl_format_ascii : stl_format_binary);
    if (j.fail == 0) demand_readable(o.removed, stl_format_binary);
    if (j.out == form::binary && !o.out.empty() && !j.piped)
        demand(word_at(o.out, 80) != 0, "a count");
}

} // namespace

} // namespace velmora

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace velmora;
    enter_own_folder();
    const job j = make_job(data, size);
    const outcome first = run_job(j);
    demand_honest(j, first);
    if (size % 4 != 0 || j.stop != 0 || j.fail != 0) return 0;
    const outcome again = run_job(j);
    demand(again.out == first.out && again.removed == first.removed, "the same from a second run");
    return 0;
}
