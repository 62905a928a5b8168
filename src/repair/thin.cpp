#include "repair/thin.h"

#include "mesh/cell_tree.h"
#include "mesh/measure.h"
#include "mesh/vec.h"
#include "repair/replant.h"

namespace velmora {

namespace {

struct thin_sweep {
    double height_ratio;
    double angle_tol;
    thin_counts* counts;
    obj_list replaced; // out of the surface; they leave the tree when the sweep is over
    std::int32_t* err;
    mesh_ctx* ctx;
};

// Two triangles and the slots of the edge between them.
struct flip {
    tr_h tr;
    tr_h nb;
    int edge; // of tr
    int back; // of nb; -1 when nb does not point back
};

struct tr_pair {
    tr_h tr[2];
};

enum visit_result {
    visit_failed,
    visit_unchanged,
    visit_replaced,
};

bool is_thin(const tr_rec& tr, double height_ratio)
{
    int corner = -1;
    return thin_ratio(tr, &corner) < height_ratio;
}

// Each with one reference, which the mesh does not know of: what replaces a pair stays to the end.
tr_h make_flipped(vtx_h a, vtx_h b, vtx_h c, std::int32_t* err)
{
    const tr_h t = tr_new(err);
    if (!t) return t;
    tr_rec& tr = rec(tr_ref(t));
    tr.vtx[0] = vtx_ref(a);
    tr.vtx[1] = vtx_ref(b);
    tr.vtx[2] = vtx_ref(c);
    return t;
}

void discard_pair(const tr_pair& pair)
{
    for (const tr_h t : pair.tr)
        if (t) tr_release(t);
}

//         c                c
//        / \              /|\        a to p is the edge of the two;
//       /   \            / | \       d, the far corner of nb, lies below it
//      a-----p    ->    a  |  p
//       \   /            \ | /
//        \ /              \|/
//         d                d
bool make_flip_pair(const flip& f, tr_pair* pair, std::int32_t* err)
{
    const tr_rec& tr = rec(f.tr);
    const tr_rec& nb = rec(f.nb);
    const vtx_h a = tr.vtx[f.edge];
    const vtx_h c = tr.vtx[prev3(f.edge)];
    const vtx_h p = nb.vtx[f.back];
    const vtx_h d = nb.vtx[prev3(f.back)];
    pair->tr[0] = make_flipped(a, d, c, err);
    pair->tr[1] = pair->tr[0] ? make_flipped(d, p, c, err) : tr_h{};
    if (pair->tr[1]) return true;
    discard_pair(*pair);
    return false;
}

bool in_one_plane(const flip& f, double angle_tol)
{
    const tr_rec& nb = rec(f.nb);
    return (nb.flags & tr_no_nrm) || !(vec_dot(rec(f.tr).nrm, nb.nrm) < angle_tol);
}

// How many thin triangles the pair cures. When only one was thin, both new ones must be sound;
// when both were, one that is sound is a gain.
std::uint32_t count_cured(const tr_pair& pair, bool nb_is_thin, double height_ratio)
{
    int corner = -1;
    const bool good_0 = thin_ratio(rec(pair.tr[0]), &corner) >= height_ratio;
    const bool good_1 = thin_ratio(rec(pair.tr[1]), &corner) >= height_ratio;
    if (!nb_is_thin) return good_0 && good_1 ? 1 : 0;
    return (good_0 ? 1u : 0u) + (good_1 ? 1u : 0u);
}

// Makes the pair that cures `*cured` triangles, or none when that is 0; false when memory ran out.
bool try_flip(const flip& f, tr_pair* pair, std::uint32_t* cured, thin_sweep* job)
{
    *cured = 0;
    const bool nb_is_thin = is_thin(rec(f.nb), job->height_ratio);
    if (!in_one_plane(f, job->angle_tol) || f.back < 0) return true;
    if (!make_flip_pair(f, pair, job->err)) return false;
    *cured = count_cured(*pair, nb_is_thin, job->height_ratio);
    if (*cured == 0) {
        discard_pair(*pair);
        return true;
    }
    for (const tr_h t : pair->tr)
        tr_recompute_nrm(&rec(t), true, nullptr);
    return true;
}

bool put_aside(obj_h o, thin_sweep* job)
{
    tr_unlink_nbrs(rec(o).tr);
    return list_push(&job->replaced, o);
}

bool plant_pair(const tr_pair& pair, mesh_ctx* ctx)
{
    for (const tr_h t : pair.tr) {
        const obj_h o = plant_tr(t, ctx);
        if (!o) return false;
        rec(o).stamp = ctx->visit_stamp;
    }
    return true;
}

bool thin_replace(const flip& f, const tr_pair& pair, thin_sweep* job)
{
    if (put_aside(rec(f.tr).cell, job) && put_aside(rec(f.nb).cell, job) &&
        plant_pair(pair, job->ctx))
        return true;
    *job->err = err_no_memory;
    return false;
}

visit_result visit_obj(tr_h t, thin_sweep* job)
{
    const tr_rec& tr = rec(t);
    int widest = -1;
    if ((tr.flags & tr_no_nrm) || !(thin_ratio(tr, &widest) < job->height_ratio))
        return visit_unchanged;
    ++job->counts->found;
    const int edge = widest < 0 ? 0 : next3(widest);
    const tr_h nb = live_nbr(tr, edge);
    if (!nb || !rec(nb).cell) return visit_unchanged; // nothing there, or it has left the mesh
    tr_pair pair = {};
    std::uint32_t cured = 0;
    const flip f = {t, nb, edge, tr_nbr_index(t, rec(nb))};
    if (!try_flip(f, &pair, &cured, job)) return visit_failed;
    if (cured == 0) return visit_unchanged;
    job->counts->fixed += cured;
    return thin_replace(f, pair, job) ? visit_replaced : visit_failed;
}

// From the head of the list up to the first replacement.
visit_result sweep_list(const obj_list& list, thin_sweep* job)
{
    for (const obj_h o : list) {
        cell_obj& obj = rec(o);
        if (obj.stamp == job->ctx->visit_stamp) continue;
        obj.stamp = job->ctx->visit_stamp;
        const visit_result r = visit_obj(obj.tr, job);
        if (r != visit_unchanged) return r;
    }
    return visit_unchanged;
}

// A replacement may split the leaf, never free it: nothing is removed before the sweep is over.
bool sweep_node(node_h n, thin_sweep* job)
{
    if (rec(n).folded) {
        if (!folded_has_unseen(rec(n), job->ctx->visit_stamp)) return true;
        if (!cell_unfold(n)) {
            *job->err = err_no_memory;
            return false;
        }
    }
    while (is_leaf(rec(n))) {
        const visit_result r = sweep_list(rec(n).list, job);
        if (r != visit_replaced) return r == visit_unchanged;
    }
    return sweep_node(rec(n).low, job) && sweep_node(rec(n).high, job);
}

} // namespace

double thin_ratio(const tr_rec& tr, int* corner)
{
    const height_result h = tr_height(tr);
    *corner = h.corner;
    if (!h.ok) return 0.0;
    const double longest = edge_len(tr, next3(h.corner));
    return longest > k_unit_eps ? h.height / longest : 0.0;
}

stage_result repair_thin_triangles(double height_ratio, double angle_tol, thin_counts* counts,
                                   std::int32_t* err, mesh_ctx* ctx)
{
    ++ctx->visit_stamp;
    thin_sweep job = {height_ratio, angle_tol, counts, {}, err, ctx};
    const bool done = sweep_node(ctx->root, &job);
    if (done) {
        for (const obj_h o : job.replaced)
            tree_remove(o, ctx);
    }
    list_free(&job.replaced);
    return done ? unless_torn(err) : stage_failed;
}

} // namespace velmora
