#include "repair/orient.h"

#include "mesh/cell_tree.h"
#include "mesh/measure.h"
#include "mesh/vec.h"
#include "repair/abort_test.h"
#include "repair/edge_groups.h"
#include "repair/edge_sort.h"
#include "repair/seed_ray.h"
#include "repair/tr_queue.h"
#include "repair/winding.h"

namespace velmora {

namespace {

constexpr double k_ray_component_min = 0.1; ///< a ray's smaller components are zeroed
constexpr std::uint32_t k_branch_users = 3; ///< users that make an edge a branch

// Work state of one call.
struct orientation {
    tr_queue spread;
    tr_queue branch;
    ray_caster rays;
    node_h at_leaf;         // where the last seed was found,
    std::uint32_t at_place; // and the place behind it in the list
    ray_start thin; // the last sliver that the search has met, for when nothing better is left
    topo_ctx* topo;
    mesh_ctx* ctx;
    std::uint32_t tr_count; // all triangles
    std::uint32_t components;
    std::uint32_t normals;
};

void mark_branch_edge(tr_h t, int slot)
{
    tr_rec& tr = rec(t);
    tr.branch_edges = static_cast<std::uint8_t>(tr.branch_edges | 1 << slot);
}

void mark_sorted(const edge_sort& table)
{
    for (std::uint32_t place = 0; place < table.count;) {
        const std::uint32_t end = edge_pair_end(table, place);
        const bool branch = end - place >= k_branch_users;
        for (; place < end; ++place) {
            const std::uint32_t r = table.sorted[place];
            if (branch && edge_is_start(r)) mark_branch_edge(edge_tr(table, r), edge_slot(r));
        }
    }
}

// False when memory ran out.
bool mark_by_position(mesh_ctx* ctx)
{
    obj_list objs = {};
    edge_sort table = {};
    std::uint32_t count = 0;
    ++ctx->visit_stamp;
    bool done = tree_collect(ctx->root, &objs, &count, ctx);
    if (done && count != 0) {
        done = edge_sort_build(objs, &table) && edge_sort_run(&table);
        if (done) mark_sorted(table);
        edge_sort_free(&table);
    }
    list_free(&objs);
    return done;
}

void mark_in_groups(edge_groups* groups)
{
    for_each_edge_group(groups, [](const edge_group& group) {
        for (std::uint32_t i = 0; group.count >= k_branch_users && i < group.count; ++i)
            mark_branch_edge(side_tr(group.first[i]), side_slot(group.first[i]));
    });
}

// Sets branch_edges anew: bit i where three or more edges have the end points of edge i, compared
// exactly.
// @param count  raised by the number of triangles
bool mark_branch_edges(edge_groups* groups, std::uint32_t* count, mesh_ctx* ctx)
{
    for_each_obj_once(ctx, [count](obj_h, const cell_obj& obj) {
        rec(obj.tr).branch_edges = rec(obj.tr).ray_nrm = 0;
        ++*count;
        return true;
    });
    if (!ctx->topo->vtx_distinct || !groups->starts) return mark_by_position(ctx);
    mark_in_groups(groups);
    return true;
}

void reset_search_done(node_h n)
{
    cell_node& node = rec(n);
    node.search_done = false;
    if (!node.low) return;
    reset_search_done(node.low);
    reset_search_done(node.high);
}

// A corner without a length on one side has no cosine and does not count.
bool is_sliver(const tr_rec& tr)
{
    for (int i = 0; i < 3; ++i) {
        const double c = corner_cos(tr, i);
        if (c >= k_flat_corner_cos || c <= -k_flat_corner_cos) return true;
    }
    return false;
}

// Goes on behind the last seed: what stands before it in the list has been looked at.
ray_start find_seed_in_leaf(node_h leaf, std::uint32_t path, orientation* job)
{
    const obj_list& list = rec(leaf).list;
    for (std::uint32_t place = leaf == job->at_leaf ? job->at_place : 0; place < list.count;
         ++place) {
        const obj_h o = list_at(list, place);
        cell_obj& obj = rec(o);
        if (obj.stamp == job->ctx->visit_stamp) continue;
        obj.stamp = job->ctx->visit_stamp;
        const tr_rec& tr = rec(obj.tr);
        if (tr.flags & (tr_nrm_done | tr_edge_err)) continue;
        if (!is_sliver(tr)) {
            job->at_leaf = leaf;
            job->at_place = place + 1;
            return {leaf, path, o};
        }
        job->thin = {leaf, path, o};
    }
    rec(leaf).search_done = true;
    return {};
}

// False when there is no seed in the folded cell.
bool unfold_for_seeds(node_h n, const orientation* job)
{
    if (folded_has_unseen(rec(n), job->ctx->visit_stamp)) return cell_unfold(n);
    rec(n).search_done = true;
    return false;
}

// Resumes where the last search stopped; what was looked at once is never looked at again.
ray_start find_seed(node_h n, std::uint32_t path, orientation* job)
{
    cell_node& node = rec(n);
    if (node.search_done) return {};
    if (is_leaf(node)) return find_seed_in_leaf(n, path, job);
    if (node.folded && !unfold_for_seeds(n, job)) return {};
    ray_start found = find_seed(node.low, 2 * path, job);
    if (!found.seed) found = find_seed(node.high, 2 * path + 1, job);
    if (!found.seed) node.search_done = true;
    return found;
}

// One piece was all: then there is no need to look for another. (A sliver that is judged again
// counts twice, but makes a second piece.)
bool all_reached(const orientation& job)
{
    return job.components == 1 && job.normals == job.tr_count;
}

// The sliver is not looked at again: it may have been reached since, and is then judged alone.
ray_start next_seed(orientation* job)
{
    ray_start found = all_reached(*job) ? ray_start{} : find_seed(job->ctx->root, 1, job);
    if (!found.seed) {
        found = job->thin;
        job->thin = {};
    }
    return found;
}

// Start and direction of the ray: off the middle, along the normal, and exactly along an axis or in
// a main plane where it nearly is. False when the triangle has no normal.
bool aim_ray(const tr_rec& tr, float* center, float* dir)
{
    float e1[3];
    float e2[3];
    const float* c0 = corner_pos(tr, 0);
    vec_diff(c0, corner_pos(tr, 1), e1);
    vec_diff(c0, corner_pos(tr, 2), e2);
    for (int i = 0; i < 3; ++i) {
        const float sum = e1[i] + e2[i];
        center[i] = static_cast<float>(static_cast<double>(c0[i]) + static_cast<double>(sum) / 3.0);
    }
    if (!tr_clean_normal(tr, dir)) return false;
    for (int i = 0; i < 3; ++i)
        if (std::fabs(static_cast<double>(dir[i])) < k_ray_component_min) dir[i] = 0.0f;
    return true;
}

// What a seed's rays say about its normal.
enum facing {
    facing_unknown,
    facing_out,
    facing_in,
};

// Along the normal, or against it when that way is not clean. Outside lies where the number of
// crossings is even.
facing ask_rays(const ray_start& start, ray_caster* rays)
{
    const tr_rec& tr = rec(rec(start.seed).tr);
    float center[3];
    float dir[3];
    if ((tr.flags & tr_no_nrm) || !aim_ray(tr, center, dir)) return facing_unknown;
    const ray_answer ahead = cast_seed_ray(start, center, dir, rays);
    if (ahead.clean) return ahead.odd ? facing_in : facing_out;
    vec_scale(dir, -1.0f, dir);
    const ray_answer behind = cast_seed_ray(start, center, dir, rays);
    if (behind.clean) return behind.odd ? facing_out : facing_in;
    return facing_unknown;
}

// First all that clean edges reach, then what lies behind the others.
stage_result spread_from_seed(tr_h t, std::int32_t* err, orientation* job)
{
    if (!tr_queue_push(&job->spread, t)) {
        *err = err_no_memory;
        return stage_failed;
    }
    const bool compute = job->topo->orient_b != 0;
    const winding_spread clean = {&job->spread, &job->branch, compute, &job->normals};
    const winding_spread rest = {&job->branch, nullptr, compute, &job->normals};
    if (!spread_winding(spread_clean, clean, err)) return stage_failed;
    return spread_winding(spread_all, rest, err);
}

bool has_no_nbrs(const tr_rec& tr)
{
    return !tr.nbr[0] && !tr.nbr[1] && !tr.nbr[2];
}

stage_result orient_piece(const ray_start& start, std::int32_t* err, orientation* job)
{
    const facing found = ask_rays(start, &job->rays);
    if (found == facing_unknown) return stage_ok;
    ++job->components;
    const tr_h t = rec(start.seed).tr;
    const bool alone = has_no_nbrs(rec(t));
    if (found == facing_in) swap_corners(t, 1, 2);
    if (!job->topo->orient_a) swap_corners(t, 1, 2);
    tr_recompute_nrm(&rec(t), job->topo->orient_b != 0, &job->normals);
    const stage_result spread = spread_from_seed(t, err, job);
    ray_caster_settled(start.seed, alone, &job->rays);
    return spread;
}

stage_result orient_all(std::int32_t* err, orientation* job)
{
    for (ray_start start = next_seed(job); start.seed; start = next_seed(job)) {
        if (abort_test()) return stage_failed;
        if (!orient_piece(start, err, job)) return stage_failed;
    }
    return stage_ok;
}

// From the edges at corner 0; a triangle where these give none keeps its normal.
void refresh_nrm(tr_rec* tr)
{
    float e1[3];
    float e2[3];
    float nrm[3];
    vec_diff(corner_pos(*tr, 0), corner_pos(*tr, 1), e1);
    vec_diff(corner_pos(*tr, 0), corner_pos(*tr, 2), e2);
    if (!vec_unit_checked(e1) || !vec_unit_checked(e2)) return;
    vec_cross(e1, e2, nrm);
    if (vec_unit_checked(nrm)) vec_copy(nrm, tr->nrm);
}

void reset_tr(tr_rec* tr)
{
    if (tr->flags & tr_orient_seen) {
        refresh_nrm(tr);
        tr->flags |= tr_nrm_done;
    } else {
        tr->flags &= ~static_cast<std::uint64_t>(tr_nrm_done | tr_prob_33);
    }
}

} // namespace

stage_result orient_components(topo_ctx* topo, std::int32_t* err, mesh_ctx* ctx)
{
    std::uint32_t count = 0;
    const bool marked = mark_branch_edges(topo->sides, &count, ctx);
    edge_groups_free(topo->sides);
    if (!marked) return stage_failed;
    orientation job = {{}, {}, ray_caster_open(*ctx), {}, 0, {}, topo, ctx, count, 0, 0};
    topo->inconsistent = 0;
    topo->components = 0;
    reset_search_done(ctx->root);
    ++ctx->visit_stamp;
    const stage_result result = orient_all(err, &job);
    ray_caster_close(&job.rays);
    tr_queue_free(&job.spread);
    tr_queue_free(&job.branch);
    if (result == stage_failed) return stage_failed;
    topo->components = job.components;
    topo->tri_oriented = job.normals;
    return stage_ok;
}

void reset_orientation(mesh_ctx* ctx)
{
    for_each_obj_once(ctx, [](obj_h, const cell_obj& obj) {
        reset_tr(&rec(obj.tr));
        return true;
    });
}

} // namespace velmora
