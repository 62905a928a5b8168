#include "repair/winding.h"

#include "mesh/measure.h"
#include "mesh/vec.h"
#include "repair/abort_test.h"

#include <utility>

namespace velmora {

namespace {

// The marks that belong to edge slots: three runs of three bits, by their lowest.
constexpr int k_edge_bits[] = {38, 42, 45};

std::uint64_t with_edges_swapped(std::uint64_t flags, int a, int b)
{
    for (const int low : k_edge_bits) {
        const std::uint64_t differ = ((flags >> (low + a)) ^ (flags >> (low + b))) & 1u;
        flags ^= differ << (low + a) | differ << (low + b);
    }
    return flags;
}

void swap_corner_values(tr_cold* c, int i, int j)
{
    std::swap(c->extra.values[i], c->extra.values[j]);
    std::swap(c->corner_val[i], c->corner_val[j]);
}

bool corner_is_at(const tr_rec& tr, int i, vtx_h v)
{
    return tr.vtx[i] == v || pts_equal(corner_pos(tr, i), rec(v).pos);
}

// The first pass keeps off branches and defects, so that a piece is filled from its sound inside
// before anything crosses them.
bool is_clean_edge(const tr_rec& tr, int i, const tr_rec& nb)
{
    return !(tr.branch_edges >> i & 1) && nb.branch_edges == 0 && !tr_has_problem(nb) &&
           !tr_has_problem(tr);
}

// Reached neighbours are left alone whatever lies between, so a triangle is deferred only when it
// has one that waits.
bool spread_from(tr_h t, spread_pass pass, const winding_spread& job)
{
    bool deferred = false;
    tr_rec& tr = rec(t);
    for (int i = 0; i < 3; ++i) {
        const tr_h n = tr.nbr[i];
        if (!n) continue;
        tr_rec& nb = rec(n);
        if (nb.refs == 0) {
            tr.nbr[i] = {};
        } else if (nb.flags & tr_nrm_done) {
            continue;
        } else if (pass == spread_all || is_clean_edge(tr, i, nb)) {
            match_winding(tr, n, i);
            tr_recompute_nrm(&nb, job.compute, job.normal_count);
            if (!tr_queue_push(job.queue, n)) return false;
        } else if (!deferred) {
            deferred = true;
            if (!tr_queue_push(job.deferred, t)) return false;
        }
    }
    return true;
}

} // namespace

void swap_corners(tr_h t, int i, int j)
{
    tr_rec& tr = rec(t);
    const int between = next3(i) == j ? i : j; // the edge that stays
    const int a = next3(between);
    const int b = prev3(between);
    tr.flags = with_edges_swapped(tr.flags ^ tr_winding_turned, a, b);
    std::swap(tr.nbr[a], tr.nbr[b]);
    std::swap(tr.vtx[i], tr.vtx[j]);
    tr.ray_nrm = 0;
    if (cold(t).extra.key != k_no_extra) swap_corner_values(cold_for_write(t), i, j);
}

void match_winding(const tr_rec& tr, tr_h n, int slot)
{
    const tr_rec& nb = rec(n);
    if (nb.flags & tr_nrm_done) return;
    const vtx_h a = tr.vtx[slot];
    const vtx_h b = tr.vtx[next3(slot)];
    const int b_goal = next3(slot);
    const int a_goal = next3(b_goal);
    if (!corner_is_at(nb, b_goal, b)) {
        const int first = b_goal == 0 ? 1 : 0; // the other two, the lower one first
        const int second = 3 - b_goal - first;
        if (corner_is_at(nb, first, b)) {
            swap_corners(n, first, b_goal);
        } else if (corner_is_at(nb, second, b)) {
            swap_corners(n, second, b_goal);
        }
    }
    if (!corner_is_at(nb, a_goal, a)) swap_corners(n, a_goal, next3(a_goal));
}

stage_result spread_winding(spread_pass pass, const winding_spread& job, std::int32_t* err)
{
    while (const tr_h t = tr_queue_pop(job.queue)) {
        if (abort_test()) return stage_failed;
        if (spread_from(t, pass, job)) continue;
        *err = err_no_memory;
        return stage_failed;
    }
    return stage_ok;
}

} // namespace velmora
