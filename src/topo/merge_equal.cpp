#include "topo/merge_equal.h"

#include "topo/merge_pair.h"

#include <cstring>

namespace velmora {

namespace {

// The one vertex of all corners that a member has in the cluster, or none.
vtx_h vertex_of(const leaf_points& leaf, const cluster_member& m)
{
    const tr_rec& tr = rec(leaf.entries[m.entry].tr);
    vtx_h found;
    for (int i = 0; i < 3; ++i) {
        if (!(m.corners >> i & 1)) continue;
        if (found && tr.vtx[i] != found) return {};
        found = tr.vtx[i];
    }
    return found;
}

void append_run(equal_run* runs, std::uint32_t* count, std::uint32_t members, vtx_h vtx)
{
    if (members == 0) return;
    if (*count != 0 && vtx && runs[*count - 1].vtx == vtx) {
        runs[*count - 1].count += members;
    } else {
        runs[(*count)++] = {members, vtx};
    }
}

// A row is one member against all behind it, and the cluster is done when they all have its vertex:
// mostly after the first row. Counts that wrap, or that earlier leaves made uneven, take more.
class equal_points {
    const leaf_points& leaf;
    const cluster_member* members;
    equal_runs* w;
    std::uint32_t run_count = 0;
    std::int64_t merged = 0;

    // One member against a run; appends what the run becomes.
    void meet_run(const cluster_member& a, const cluster_member* of_run, equal_run r,
                  std::uint32_t* next_count)
    {
        for (std::uint32_t met = 0; met < r.count; ++met) {
            const vtx_h own = vertex_of(leaf, a);
            if (own && own == r.vtx) {
                append_run(w->next, next_count, r.count - met, r.vtx);
                return;
            }
            const cluster_member& b = of_run[met];
            merged +=
                merge_corners(leaf.entries[a.entry], a.corners, leaf.entries[b.entry], b.corners);
            append_run(w->next, next_count, 1, vertex_of(leaf, b));
        }
    }

    // The member at `first` against all behind it, which `now` tells.
    void meet_all(std::uint32_t first)
    {
        std::uint32_t next_count = 0;
        std::uint32_t at = first + 1;
        for (std::uint32_t r = 0; r < run_count; ++r) {
            meet_run(members[first], members + at, w->now[r], &next_count);
            at += w->now[r].count;
        }
        equal_run* const swap = w->now;
        w->now = w->next;
        w->next = swap;
        run_count = next_count;
    }

    void take_first()
    {
        if (--w->now[0].count != 0) return;
        --run_count;
        std::memmove(w->now, w->now + 1, sizeof(equal_run) * run_count);
    }

  public:
    equal_points(const leaf_points& of_leaf, const point_cluster& cluster, equal_runs* runs)
        : leaf(of_leaf), members(of_leaf.members + cluster.first), w(runs)
    {
        for (std::uint32_t m = 0; m < cluster.count; ++m)
            append_run(w->now, &run_count, 1, vertex_of(leaf, members[m]));
    }

    std::int64_t merge()
    {
        for (std::uint32_t first = 0; run_count > 1; ++first) {
            take_first();
            meet_all(first);
        }
        return merged;
    }
};

bool reserve(equal_runs* runs, std::uint32_t count)
{
    if (count <= runs->capacity) return true;
    runs->capacity = 0;
    if (!heap_renew(&runs->now, count) || !heap_renew(&runs->next, count)) return false;
    runs->capacity = count;
    return true;
}

} // namespace

std::int64_t merge_equal(const leaf_points& leaf, const point_cluster& cluster, equal_runs* runs)
{
    if (!reserve(runs, cluster.count)) return -1;
    return equal_points(leaf, cluster, runs).merge();
}

void equal_runs_free(equal_runs* runs)
{
    heap_free(runs->now);
    heap_free(runs->next);
    *runs = {};
}

} // namespace velmora
