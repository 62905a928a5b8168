#include "repair/degenerate.h"

#include "mesh/box.h"
#include "mesh/cell_tree.h"
#include "mesh/folded_cells.h"
#include "mesh/measure.h"
#include "mesh/vec.h"
#include "repair/replant.h"

namespace velmora {

namespace {

constexpr double k_user_reach = 10.0; ///< around a vertex that goes, in tolerances
constexpr int k_longest_set = 6;

struct sweep {
    double tol;
    std::int32_t* err;
    mesh_ctx* ctx;
    bool restart; // a repair has changed the tree: the leaf's list must be read anew
};

// Triangles whose links are to be rebuilt; entries may be none.
struct link_set {
    tr_h tr[k_longest_set];
    int n;
};

void set_add(link_set* set, tr_h t)
{
    set->tr[set->n++] = t;
}

// What was deleted and is held by nobody has no edges left to link.
void set_drop_dead(link_set* set)
{
    for (int i = 0; i < set->n; ++i)
        if (set->tr[i] && rec(set->tr[i]).refs == 0) set->tr[i] = {};
}

// The slot's old neighbour is not told, so it may go on pointing at a triangle that can die
// without knowing of it.
void set_nbr(tr_h* slot, tr_h nbr)
{
    if (*slot && *slot != nbr) links_may_dangle = true;
    *slot = nbr;
}

// Joins edge `e` of `t` with the first of the set that has it too.
void relink_edge(tr_h t, int e, const link_set& set)
{
    tr_rec& tr = rec(t);
    for (int i = 0; i < set.n; ++i) {
        const tr_h u = set.tr[i];
        if (!u || u == t) continue;
        const int s = tr_edge_index(tr.vtx[e], tr.vtx[next3(e)], rec(u));
        if (s < 0) continue;
        set_nbr(&tr.nbr[e], u);
        set_nbr(&rec(u).nbr[s], t);
        return;
    }
}

void relink_all(const link_set& set)
{
    for (int i = 0; i < set.n; ++i)
        for (int e = 0; set.tr[i] && e < 3; ++e)
            relink_edge(set.tr[i], e, set);
}

bool failed(sweep* job)
{
    *job->err = err_no_memory;
    return false;
}

// ---- short edge

// One vertex takes the place of another.
struct merge_job {
    tr_h tr; // the two triangles on the edge between them; they go
    tr_h nb;
    vtx_h gone;
    vtx_h keep;
    obj_list changed; // objects of the other triangles that have moved; may repeat
};

int find_short_edge(const tr_rec& tr, double tol)
{
    for (int i = 0; i < 3; ++i) {
        const int next = next3(i);
        if (tr.vtx[i] == tr.vtx[next]) continue;
        if (pt_dist(corner_pos(tr, i), corner_pos(tr, next)) <= tol) return i;
    }
    return -1;
}

aabb box_around(const float* pt, double reach)
{
    aabb box;
    vec_copy(pt, box.min);
    vec_copy(pt, box.max);
    box_widen(&box, reach);
    return box;
}

bool replace_corners(tr_rec* tr, vtx_h gone, vtx_h keep)
{
    bool changed = false;
    for (vtx_h& slot : tr->vtx) {
        if (slot != gone) continue;
        slot = vtx_ref(keep);
        vtx_release(gone);
        changed = true;
    }
    return changed;
}

// A change to one of the two triangles that go is carried over to the next one in the leaf, which
// then gets a new normal and place as well: harmless, and normals depend on it.
bool replace_in_leaf(const cell_node& leaf, merge_job* job)
{
    bool changed = false;
    for (const obj_h o : leaf.list) {
        const tr_h t = rec(o).tr;
        if (replace_corners(&rec(t), job->gone, job->keep)) changed = true;
        if (!changed || t == job->tr || t == job->nb) continue;
        changed = false;
        tr_recompute_nrm(&rec(t), true, nullptr);
        if (!list_push(&job->changed, o)) return false;
    }
    return true;
}

// The tree knows the users of a vertex: they lie in the leaves around it.
bool replace_vertex(double tol, merge_job* job, mesh_ctx* ctx)
{
    const aabb box = box_around(rec(job->gone).pos, k_user_reach * tol);
    return walk_leaves(
        ctx->root, [&](const cell_node& n) { return box_overlap(n.box, box); },
        [&](const cell_node& leaf) { return replace_in_leaf(leaf, job); });
}

void add_outer_nbrs(link_set* set, const tr_rec& tr, int edge)
{
    for (int i = next3(edge); i != edge; i = next3(i))
        if (const tr_h n = live_nbr(tr, i)) set_add(set, n);
}

// Deletes the two triangles on the short edge and joins those around them.
void close_gap(const merge_job& job, int edge, mesh_ctx* ctx)
{
    link_set set = {};
    add_outer_nbrs(&set, rec(job.tr), edge);
    const int back = job.nb ? tr_nbr_index(job.tr, rec(job.nb)) : -1;
    if (back >= 0) add_outer_nbrs(&set, rec(job.nb), back);
    tr_delete(job.tr, ctx);
    if (job.nb) tr_delete(job.nb, ctx);
    set_drop_dead(&set);
    relink_all(set);
}

bool replant_all(const obj_list& objs, mesh_ctx* ctx)
{
    for (const obj_h o : objs) {
        tree_remove(o, ctx);
        if (!replant_obj(o, ctx)) return false;
    }
    return true;
}

// The vertex with more users stays, on a tie the start of the edge.
bool collapse_edge(tr_h t, int edge, sweep* job)
{
    const tr_rec& tr = rec(t);
    const vtx_h from = tr.vtx[edge];
    const vtx_h to = tr.vtx[next3(edge)];
    const bool keep_end = rec(to).refs > rec(from).refs;
    merge_job merge = {t, live_nbr(tr, edge), keep_end ? from : to, keep_end ? to : from, {}};
    bool done = replace_vertex(job->tol, &merge, job->ctx);
    if (done) {
        close_gap(merge, edge, job->ctx);
        done = replant_all(merge.changed, job->ctx);
    }
    list_free(&merge.changed);
    return done || failed(job);
}

bool collapse_short_edge(tr_h t, sweep* job)
{
    const int edge = find_short_edge(rec(t), job->tol);
    if (edge < 0) return true;
    job->restart = true;
    return collapse_edge(t, edge, job);
}

// ---- cap

// A cap and its surroundings.
struct cap {
    tr_h tr;
    tr_h opp;  // across the long edge
    tr_h nb_a; // across the edge that starts at the apex
    tr_h nb_b; // across the edge that ends there
    int apex;  // the obtuse corner
    int slot;  // of the cap in `opp`; -1 when `opp` does not point back
};

struct tr_pair {
    tr_h tr[2];
};

int obtuse_corner(const tr_rec& tr)
{
    for (int i = 0; i < 3; ++i)
        if (corner_cos(tr, i) < 0.0) return i;
    return -1;
}

cap look_at_cap(tr_h t, int apex)
{
    const tr_rec& tr = rec(t);
    cap c = {t, live_nbr(tr, next3(apex)), live_nbr(tr, apex), live_nbr(tr, prev3(apex)), apex, -1};
    if (c.opp) c.slot = tr_nbr_index(t, rec(c.opp));
    return c;
}

// None on both sides counts: then both have an open edge.
bool share_nbr(const tr_rec& a, const tr_rec& b)
{
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            if (live_nbr(a, i) == live_nbr(b, j)) return true;
    return false;
}

// A split would not help, or it would fold the surface.
bool must_keep(const cap& c)
{
    const tr_rec& opp = rec(c.opp);
    return (opp.flags & tr_no_nrm) || c.slot < 0 || share_nbr(rec(c.tr), opp);
}

tr_h make_tr_like(const tr_rec& model, vtx_h a, vtx_h b, vtx_h c, std::int32_t* err)
{
    const tr_h t = tr_new(err);
    if (!t) return t;
    tr_rec& tr = rec(t);
    tr.vtx[0] = vtx_ref(a);
    tr.vtx[1] = vtx_ref(b);
    tr.vtx[2] = vtx_ref(c);
    tr.flags = model.flags;
    tr.plane_class = model.plane_class;
    tr_recompute_nrm(&tr, true, nullptr);
    return t;
}

// For triangles that were never in the mesh.
void discard_pair(const tr_pair& pair)
{
    for (const tr_h t : pair.tr)
        if (t) tr_release(tr_ref(t));
}

bool make_split_pair(const cap& c, tr_pair* pair, std::int32_t* err)
{
    const tr_rec& opp = rec(c.opp);
    const vtx_h apex = rec(c.tr).vtx[c.apex];
    const vtx_h p = opp.vtx[c.slot];
    const vtx_h q = opp.vtx[next3(c.slot)];
    const vtx_h r = opp.vtx[prev3(c.slot)];
    pair->tr[0] = make_tr_like(opp, r, apex, q, err);
    pair->tr[1] = pair->tr[0] ? make_tr_like(opp, r, p, apex, err) : tr_h{};
    if (!pair->tr[1]) {
        discard_pair(*pair);
        return false;
    }
    tr_unlink_mate(c.opp);
    return true;
}

bool pair_has_normals(const tr_pair& pair)
{
    return !((rec(pair.tr[0]).flags | rec(pair.tr[1]).flags) & tr_no_nrm);
}

// Last first, which decides their identities and places in the leaves.
bool insert_new_triangles(const tr_pair& pair, mesh_ctx* ctx)
{
    return plant_tr(pair.tr[1], ctx) && plant_tr(pair.tr[0], ctx);
}

bool replace_cap(const cap& c, const tr_pair& pair, sweep* job)
{
    const tr_rec& opp = rec(c.opp);
    link_set set = {{c.nb_a, c.nb_b, live_nbr(opp, next3(c.slot)), live_nbr(opp, prev3(c.slot))},
                    4};
    tr_delete(c.tr, job->ctx);
    tr_delete(c.opp, job->ctx);
    set_drop_dead(&set);
    set_add(&set, pair.tr[0]);
    set_add(&set, pair.tr[1]);
    relink_all(set);
    return insert_new_triangles(pair, job->ctx) || failed(job);
}

bool split_cap(tr_h t, sweep* job)
{
    const int apex = obtuse_corner(rec(t));
    if (apex < 0) return true;
    const cap c = look_at_cap(t, apex);
    if (!c.opp || (!c.nb_a && !c.nb_b)) { // open beside it, or alone: nothing to patch
        job->restart = true;
        tr_delete(t, job->ctx);
        return true;
    }
    if (must_keep(c)) return true;
    tr_pair pair = {};
    if (!make_split_pair(c, &pair, job->err)) return false;
    if (!pair_has_normals(pair)) {
        discard_pair(pair);
        return true;
    }
    job->restart = true;
    return replace_cap(c, pair, job);
}

// ---- sweep

bool sweep_node(node_h n, sweep* job);

// Pruning may take a node away during the sweep below it.
bool is_still(node_h n, std::uint32_t serial)
{
    return rec(n).serial == serial;
}

bool sweep_children(node_h n, sweep* job)
{
    const std::uint32_t serial = rec(n).serial;
    if (!sweep_node(rec(n).low, job)) return false;
    if (!is_still(n, serial) || is_leaf(rec(n))) return true;
    return sweep_node(rec(n).high, job);
}

bool is_due(obj_h o, const sweep& job)
{
    return (rec(rec(o).tr).flags & tr_no_nrm) && rec(o).stamp != job.ctx->visit_stamp;
}

// From the head of the list up to the first repair.
bool sweep_list(const obj_list& list, sweep* job)
{
    for (const obj_h o : list) {
        const tr_h t = rec(o).tr;
        if (!is_due(o, *job)) continue;
        rec(o).stamp = job->ctx->visit_stamp;
        if (!collapse_short_edge(t, job)) return false;
        if (job->restart) return true;
        if (!split_cap(t, job)) return false;
        if (job->restart) return true;
    }
    return true;
}

// An insertion may split the leaf, a removal may free it: then the sweep of this leaf is over.
bool sweep_node(node_h n, sweep* job)
{
    const std::uint32_t serial = rec(n).serial;
    if (rec(n).folded) {
        if (!any_folded(rec(n), [job](obj_h o) { return is_due(o, *job); })) return true;
        if (!cell_unfold(n)) return failed(job);
    }
    do {
        if (!is_leaf(rec(n))) return sweep_children(n, job);
        job->restart = false;
        if (!sweep_list(rec(n).list, job)) return false;
    } while (job->restart && is_still(n, serial));
    return true;
}

std::uint32_t count_no_nrm(mesh_ctx* ctx)
{
    std::uint32_t count = 0;
    for_each_obj_once(ctx, [&](obj_h, const cell_obj& obj) {
        if (rec(obj.tr).flags & tr_no_nrm) ++count;
        return true;
    });
    return count;
}

} // namespace

stage_result remove_degenerates_pass(double tol, std::int32_t* err, mesh_ctx* ctx)
{
    sweep job = {tol, err, ctx, false};
    std::uint32_t count = count_no_nrm(ctx);
    std::uint32_t before = count + 1;
    while (count != 0 && count < before) {
        ++ctx->visit_stamp;
        if (!sweep_node(ctx->root, &job)) return stage_failed;
        before = count;
        count = count_no_nrm(ctx);
    }
    return stage_ok;
}

} // namespace velmora
