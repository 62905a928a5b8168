#include "topo/merge.h"

#include "mesh/box.h"
#include "mesh/cell_tree.h"
#include "mesh/vec.h"
#include "topo/leaf_points.h"

#include <cstring>

namespace velmora {

namespace {

// Objects of a leaf that stand next to each other among those of one cluster, and whose corners
// there all are one record.
struct run {
    std::uint32_t count;
    vtx_h vtx; // none for an object with several records
};

// Scratch of the merge, kept from leaf to leaf.
struct merge_work {
    leaf_points leaf;
    run* runs; // what is left of a cluster's objects, and how they stand after a row
    run* next_runs;
    std::uint32_t capacity;
    std::uint32_t settled;  // visit stamp of objects no two of which have anything to merge
    std::uint8_t* looks_at; // by object, where only some may have anything to merge: which; owned
    obj_list chosen;        // those of a leaf, in its order; owned, holds no references
};

void merge_work_free(merge_work* w)
{
    leaf_points_free(&w->leaf);
    heap_free(w->runs);
    heap_free(w->next_runs);
    heap_free(w->looks_at);
    heap_free(w->chosen.items);
    *w = {};
}

bool reserve_runs(merge_work* w, std::uint32_t count)
{
    if (count <= w->capacity) return true;
    heap_free(w->runs);
    heap_free(w->next_runs);
    w->capacity = 0;
    w->runs = static_cast<run*>(heap_alloc(sizeof(run) * count));
    w->next_runs = static_cast<run*>(heap_alloc(sizeof(run) * count));
    if (!w->runs || !w->next_runs) return false;
    w->capacity = count;
    return true;
}

// The slot of the corner that gives way takes the record of the other.
void hand_over(vtx_h* slot, vtx_h to)
{
    const vtx_h old = *slot;
    *slot = vtx_ref(to);
    vtx_release(old);
}

std::uint64_t merged_pairs = 0;

void merge_pair(vtx_h* p, vtx_h* q)
{
    ++merged_pairs;
    if (rec(*p).refs <= rec(*q).refs) {
        hand_over(p, *q);
    } else {
        hand_over(q, *p);
    }
}

// Corners of `a`, which stands before `b` in the list, with those of `b`. Each step may change what
// the next one reads.
void merge_corners(const leaf_entry& a, unsigned a_corners, const leaf_entry& b, unsigned b_corners)
{
    for (int i = 0; i < 3; ++i) {
        if (!(a_corners >> i & 1)) continue;
        for (int j = 0; j < 3; ++j) {
            if (!(b_corners >> j & 1)) continue;
            vtx_h* const p = &rec(a.tr).vtx[i];
            vtx_h* const q = &rec(b.tr).vtx[j];
            if (*p != *q && pts_equal(rec(*p).pos, rec(*q).pos)) merge_pair(p, q);
        }
    }
}

constexpr unsigned k_all_corners = 7;

void merge_all_pairs(const leaf_points& leaf)
{
    for (std::uint32_t a = 0; a < leaf.entry_count; ++a)
        for (std::uint32_t b = a + 1; b < leaf.entry_count; ++b)
            if (box_overlap(leaf.entries[a].box, leaf.entries[b].box))
                merge_corners(leaf.entries[a], k_all_corners, leaf.entries[b], k_all_corners);
}

void merge_cluster_pairs(const leaf_points& leaf, const cluster_member* members,
                         std::uint32_t count)
{
    for (std::uint32_t a = 0; a < count; ++a)
        for (std::uint32_t b = a + 1; b < count; ++b) {
            const leaf_entry& ea = leaf.entries[members[a].entry];
            const leaf_entry& eb = leaf.entries[members[b].entry];
            if (box_overlap(ea.box, eb.box))
                merge_corners(ea, members[a].corners, eb, members[b].corners);
        }
}

// The one record of all corners that a member has in the cluster, or none.
vtx_h record_of(const leaf_points& leaf, const cluster_member& m)
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

void append_run(run* runs, std::uint32_t* count, std::uint32_t members, vtx_h vtx)
{
    if (members == 0) return;
    if (*count != 0 && vtx && runs[*count - 1].vtx == vtx) {
        runs[*count - 1].count += members;
    } else {
        runs[(*count)++] = {members, vtx};
    }
}

// A cluster whose corners are all equal, so that each pair of different records merges:
// members with one and the same record can be passed over by the run. A row is one member against
// all behind it, and the cluster is done when they all have its record: mostly after the first row.
// Counts that wrap, or that earlier leaves made uneven, take more.
class equal_points {
    const leaf_points& leaf;
    const cluster_member* members;
    merge_work* w;
    std::uint32_t run_count = 0;

    // One member against a run; appends what the run becomes.
    void meet_run(const cluster_member& a, const cluster_member* of_run, run r,
                  std::uint32_t* next_count)
    {
        for (std::uint32_t met = 0; met < r.count; ++met) {
            const vtx_h own = record_of(leaf, a);
            if (own && own == r.vtx) {
                append_run(w->next_runs, next_count, r.count - met, r.vtx);
                return;
            }
            const cluster_member& b = of_run[met];
            merge_corners(leaf.entries[a.entry], a.corners, leaf.entries[b.entry], b.corners);
            append_run(w->next_runs, next_count, 1, record_of(leaf, b));
        }
    }

    // The member at `first` against all behind it, which `runs` tells.
    void meet_all(std::uint32_t first)
    {
        std::uint32_t next_count = 0;
        std::uint32_t at = first + 1;
        for (std::uint32_t r = 0; r < run_count; ++r) {
            meet_run(members[first], members + at, w->runs[r], &next_count);
            at += w->runs[r].count;
        }
        run* const swap = w->runs;
        w->runs = w->next_runs;
        w->next_runs = swap;
        run_count = next_count;
    }

    void take_first()
    {
        if (--w->runs[0].count != 0) return;
        --run_count;
        std::memmove(w->runs, w->runs + 1, sizeof(run) * run_count);
    }

  public:
    equal_points(merge_work* work, const cluster_member* of_cluster, std::uint32_t count)
        : leaf(work->leaf), members(of_cluster), w(work)
    {
        for (std::uint32_t m = 0; m < count; ++m)
            append_run(w->runs, &run_count, 1, record_of(leaf, members[m]));
    }

    void merge()
    {
        for (std::uint32_t first = 0; run_count > 1; ++first) {
            take_first();
            meet_all(first);
        }
    }
};

void merge_cluster(merge_work* w, const point_cluster& c)
{
    const cluster_member* members = w->leaf.members + c.first;
    if (c.all_meet) {
        equal_points(w, members, c.count).merge();
    } else {
        merge_cluster_pairs(w->leaf, members, c.count);
    }
}

bool merge_list(const obj_list& list, merge_work* w)
{
    if (!leaf_points_load(list, &w->leaf) || !reserve_runs(w, list.count)) return false;
    if (!w->leaf.clustered) {
        merge_all_pairs(w->leaf);
        return true;
    }
    for (std::uint32_t c = 0; c < w->leaf.cluster_count; ++c)
        merge_cluster(w, w->leaf.clusters[c]);
    return true;
}

bool is_settled(const obj_list& list, std::uint32_t stamp)
{
    for (const obj_h o : list)
        if (rec(o).stamp != stamp) return false;
    return true;
}

// Where boxes are large, leaf after leaf lists the same objects. Whether two corners merge depends
// on neither the leaf nor the order, so a list in which nothing merged settles any part of it,
// until something merges elsewhere.
bool merge_leaf(const obj_list& list, merge_work* w, mesh_ctx* ctx)
{
    if (list.count < 2 || is_settled(list, w->settled)) return true;
    const std::uint64_t before = merged_pairs;
    if (!merge_list(list, w)) return false;
    w->settled = ++ctx->visit_stamp;
    if (merged_pairs != before) return true;
    for (const obj_h o : list)
        rec(o).stamp = w->settled;
    return true;
}

// Moves the marks of the triangles to where they are at hand for each entry of a list.
bool choose_objects(merge_work* w, mesh_ctx* ctx)
{
    const std::size_t objs = obj_pool.used;
    w->looks_at = heap_array<std::uint8_t>(objs);
    if (!w->looks_at) return false;
    std::memset(w->looks_at, 0, objs);
    return for_each_obj_once(ctx, [&](obj_h o, const cell_obj& obj) {
        tr_rec& tr = rec(obj.tr);
        w->looks_at[o.i] = (tr.flags & tr_may_merge) != 0;
        tr.flags &= ~tr_may_merge;
        return true;
    });
}

// The others have no corner that is equal to one of another vertex.
bool merge_chosen(const obj_list& list, merge_work* w, mesh_ctx* ctx)
{
    if (!list_reserve(&w->chosen, list.count)) return false;
    w->chosen.count = 0;
    for (std::uint32_t i = 0; i < list.count; ++i)
        if (w->looks_at[list.items[i].i]) w->chosen.items[w->chosen.count++] = list.items[i];
    return merge_leaf(w->chosen, w, ctx);
}

bool merge_tree(merge_work* w, mesh_ctx* ctx)
{
    const bool some = ctx->topo && ctx->topo->weld == weld_some;
    if (some && !choose_objects(w, ctx)) return false;
    w->settled = ++ctx->visit_stamp;
    return walk_leaves(ctx->root, everywhere, [&](cell_node& leaf) {
        return some ? merge_chosen(leaf.list, w, ctx) : merge_leaf(leaf.list, w, ctx);
    });
}

} // namespace

stage_result merge_vertices(std::int32_t* err, mesh_ctx* ctx)
{
    if (!ctx->root) return stage_ok;
    merge_work w = {};
    const bool done = merge_tree(&w, ctx);
    merge_work_free(&w);
    if (!done) *err = err_no_memory;
    return done ? stage_ok : stage_failed;
}

} // namespace velmora
