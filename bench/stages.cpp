// bench/stages.cpp - where the time of a run goes.
//
//     stages MODEL.stl OUT.stl
//
// Reduces a binary model in mode 1 and prints a line for each step: its number, the turn (0 outside
// of turns), milliseconds of processor time, the floor, and the name, with tabs between. The floor
// is the time in which this machine's memory, measured first, moves what the step can't do without.
// bench/stages.sh makes a table of it.

#include "steps.h"

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <vector>

namespace {

using velmora::bench::k_step_count;
using velmora::bench::k_steps;
using velmora::bench::k_turns;
using velmora::bench::mesh_size;
using velmora::bench::step;
using velmora::bench::step_run;

/// Milliseconds of processor time so far.
double now()
{
    return static_cast<double>(std::clock()) * 1000.0 / CLOCKS_PER_SEC;
}

struct memory_speed {
    double ms_per_byte; ///< read or written in order
    double ms_per_load; ///< of loads all over 128 MB that do not wait for each other
};

volatile std::uint64_t sink; // what is stored here has to be computed

memory_speed measure_memory()
{
    constexpr std::size_t k_words = std::size_t{16} << 20;
    constexpr int k_rounds = 8;
    std::vector<std::uint64_t> table(k_words, 1);
    double best = 0.0;
    for (int i = 0; i < k_rounds; ++i) {
        const double start = now();
        for (std::uint64_t& word : table)
            ++word;
        const double took = now() - start;
        if (i == 0 || took < best) best = took;
    }
    std::uint64_t sum = 0;
    std::uint64_t at = 1;
    const double start = now();
    for (std::size_t i = 0; i < k_words; ++i) {
        at = at * 6364136223846793005u + 1442695040888963407u;
        sum += table[(at >> 33) % k_words];
    }
    sink = sum;
    const double words = static_cast<double>(k_words);
    return {best / (2 * sizeof(std::uint64_t) * words), (now() - start) / words};
}

/// Steps that make something are measured by what is there afterwards, those that take away by
/// what was there before.
double floor_of(const step& s, const mesh_size& before, const mesh_size& after,
                const memory_speed& memory)
{
    const auto larger = [](double a, double b) { return a > b ? a : b; };
    const double trs = larger(before.trs, after.trs);
    const double bytes = s.needs.tr_bytes * trs +
                         s.needs.vtx_bytes * larger(before.vtxs, after.vtxs) +
                         s.needs.entry_bytes * larger(before.entries, after.entries);
    return bytes * memory.ms_per_byte + s.needs.tr_loads * trs * memory.ms_per_load;
}

int line = 0;

bool go(const step& s, int turn, step_run* run, const memory_speed& memory)
{
    const mesh_size before = size_of_mesh(*run);
    const double start = now();
    const bool done = s.go(run);
    const double took = now() - start;
    if (!done) {
        std::fprintf(stderr, "stages: %s failed\n", s.name);
        return false;
    }
    std::printf("%d\t%d\t%.2f\t%.2f\t%s\n", line++, turn, took,
                floor_of(s, before, size_of_mesh(*run), memory), s.name);
    return true;
}

bool go_all(velmora::bench::step_when when, int turn, step_run* run, const memory_speed& memory)
{
    for (int i = 0; i < k_step_count; ++i)
        if (k_steps[i].when == when && !go(k_steps[i], turn, run, memory)) return false;
    return true;
}

bool time_steps(step_run* run)
{
    const memory_speed memory = measure_memory();
    if (!go_all(velmora::bench::step_at_start, 0, run, memory)) return false;
    for (run->turn = 0; run->turn < k_turns; ++run->turn) {
        const int turn = run->turn + 1;
        if (run->turn > 0 && !go_all(velmora::bench::step_between_turns, turn, run, memory))
            return false;
        if (!go_all(velmora::bench::step_in_turn, turn, run, memory)) return false;
    }
    return go_all(velmora::bench::step_at_end, 0, run, memory);
}

} // namespace

int main(int argc, char** argv)
{
    std::FILE* in = argc == 3 ? std::fopen(argv[1], "rb") : nullptr;
    std::FILE* out = in ? std::fopen(argv[2], "wb") : nullptr;
    if (!out) {
        std::fprintf(stderr, "usage: stages MODEL.stl OUT.stl\n");
        if (in) std::fclose(in);
        return 2;
    }
    step_run run;
    velmora::bench::step_run_init(in, out, &run);
    const bool done = time_steps(&run);
    velmora::bench::step_run_free(&run);
    std::fclose(in);
    return std::fclose(out) == 0 && done ? 0 : 1;
}
