// bench/steps.h - a run in mode 1, step by step, so that each step can be timed by itself.
//
// The order is that of run/. bench/stages.sh holds what comes out against the output of the
// program, byte by byte, so a step that is missing here or stands in the wrong place shows.
//
// The records are those of the process (run/run_state.h): one run at a time.
#pragma once

#include "mesh/soup.h"

#include <cstdint>
#include <cstdio>

namespace velmora::bench {

/// What goes from step to step.
struct step_run {
    std::FILE* in;  ///< binary STL, at its start; borrowed
    std::FILE* out; ///< where the result goes; borrowed
    tr_soup soup;   ///< until it stands in the tree
    aabb box;
    int turn; ///< 0 in the first
};

/// What a step can't do without: each record that it needs read once, each that it changes written
/// once, and loads from places that nobody can foretell.
struct step_needs {
    double tr_bytes;    ///< for each triangle
    double vtx_bytes;   ///< for each vertex
    double entry_bytes; ///< for each entry in the list of a leaf
    double tr_loads;    ///< random loads for each triangle
};

enum step_when {
    step_at_start,
    step_between_turns,
    step_in_turn,
    step_at_end,
};

struct step {
    const char* name;
    step_when when;
    bool (*go)(step_run* run);
    step_needs needs;
};

extern const step k_steps[];
extern const int k_step_count;

constexpr int k_turns = 2; ///< of a run in mode 1

/// Fresh records for a run from `in` to `out`; to be ended by step_run_free.
void step_run_init(std::FILE* in, std::FILE* out, step_run* run);

/// Gives all records back.
void step_run_free(step_run* run);

/// The step of that name; null when there is none.
const step* find_step(const char* name);

/// Takes a fresh run to where `last` is next; null: through the whole first turn.
bool run_up_to(const step* last, step_run* run);

/// How much there is of what step_needs speaks of.
struct mesh_size {
    double trs;
    double vtxs;
    double entries;
};

/// The mesh as it stands; while it is still a soup, that.
mesh_size size_of_mesh(const step_run& run);

} // namespace velmora::bench
