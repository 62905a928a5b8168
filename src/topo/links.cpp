#include "topo/links.h"

#include "mesh/box.h"
#include "mesh/cell_tree.h"
#include "mesh/log.h"
#include "mesh/measure.h"
#include "topo/edge_tbl.h"
#include "topo/open_edges.h"

namespace velmora {

namespace {

// One open edge in search of a partner.
struct edge_search {
    obj_h obj;
    tr_h tr; // of obj
    int i;   // slot of the edge
    vtx_h a; // its ends
    vtx_h b;
    topo_ctx* topo;
    mesh_ctx* ctx;
};

enum scan_step {
    scan_on,    // nothing for this edge here
    scan_done,  // linked
    scan_failed // out of memory
};

bool is_edge(const edge_search& s, vtx_h from, vtx_h to)
{
    return (from == s.a && to == s.b) || (from == s.b && to == s.a);
}

// A failure ends the search as if there were nothing to find, so the log has to tell of it.
bool note_claim(const edge_search& s)
{
    ++s.topo->edge_errors;
    if (list_push(&s.topo->edge_err_list, s.obj) &&
        note_edge_error(s.a, s.b, &s.topo->edge_errs, s.obj, s.ctx))
        return true;
    log_line("mm_malloc: no more memory available\n");
    return false;
}

// Edge `k` of `t2` is the edge searched for: it is free, or the claim is an error.
scan_step claim_edge(const edge_search& s, tr_h t2, int k)
{
    tr_rec& other = rec(t2);
    if (!live_nbr(other, k)) {
        other.nbr[k] = s.tr;
        rec(s.tr).nbr[s.i] = t2;
        return scan_done;
    }
    if (tr_nbr_index(s.tr, other) >= 0) return scan_on;
    return note_claim(s) ? scan_on : scan_failed;
}

// A duplicate is never a neighbour of its twin, whatever edges it has.
scan_step scan_triangle(const edge_search& s, tr_h t2)
{
    scan_step result = scan_on;
    for (int k = 0; k < 3; ++k) {
        const tr_rec& other = rec(t2);
        if (!is_edge(s, other.vtx[k], other.vtx[next3(k)])) continue;
        if (tr_same_vertices(rec(s.tr), other)) return scan_on;
        const scan_step step = claim_edge(s, t2, k);
        if (step == scan_failed) return scan_failed;
        if (step == scan_done) result = scan_done;
    }
    return result;
}

// The first free partner in list order wins.
bool scan_leaf(const edge_search& s, const obj_list& list)
{
    for (const obj_h o : list) {
        if (o == s.obj) continue;
        const scan_step step = scan_triangle(s, rec(o).tr);
        if (step != scan_on) return step == scan_done;
    }
    return false;
}

} // namespace

bool find_nbr(obj_h obj, int i, topo_ctx* topo, mesh_ctx* ctx)
{
    const tr_h t = rec(obj).tr;
    const edge_search s = {obj, t, i, rec(t).vtx[i], rec(t).vtx[next3(i)], topo, ctx};
    const float* a = rec(s.a).pos;
    const auto enter = [&](const cell_node& node) { return pt_in_box(node.box, a); };
    const auto not_found = [&](const cell_node& leaf) { return !scan_leaf(s, leaf.list); };
    return !walk_leaves(ctx->root, enter, not_found);
}

// The only partner of an edge is found wherever the tree is asked, if only its box and the tree
// contain the edge's first corner.
static bool link_only_partner(obj_h obj, int i, obj_h partner, const aabb& root_box)
{
    tr_rec& tr = rec(rec(obj).tr);
    tr_rec& other = rec(rec(partner).tr);
    const float* a = corner_pos(tr, i);
    const int k = tr_edge_index(tr.vtx[i], tr.vtx[next3(i)], other);
    if (live_nbr(other, k) || !pt_in_box(rec(partner).box, a) || !pt_in_box(root_box, a))
        return false;
    other.nbr[k] = rec(obj).tr;
    tr.nbr[i] = rec(partner).tr;
    return true;
}

// Edges with no more than two users, which nobody else can claim, so that their order is no matter.
// Returns whether all open slots are settled.
static bool link_pairs(const open_edges& index, const mesh_ctx& ctx)
{
    bool settled = !index.collapsed;
    for_each_stamped(ctx.visit_stamp, [&](obj_h obj, const tr_rec& tr) {
        for (int i = 0; i < 3; ++i) {
            if (live_nbr(tr, i)) continue;
            obj_h partner;
            const partner_count partners = edge_partner(index, tr, i, &partner);
            const bool linked =
                partners == only_pair && link_only_partner(obj, i, partner, rec(ctx.root).box);
            if (!linked && partners != no_partner) settled = false;
        }
    });
    return settled;
}

static void fill_slot(const open_edges& index, obj_h obj, int i, topo_ctx* topo, mesh_ctx* ctx)
{
    obj_h partner;
    const partner_count partners = edge_partner(index, rec(rec(obj).tr), i, &partner);
    if (partners == no_partner) return;
    const bool sole = partners == one_partner || partners == only_pair;
    if (sole && link_only_partner(obj, i, partner, rec(ctx->root).box)) return;
    find_nbr(obj, i, topo, ctx);
}

static void fill_slots(const open_edges& index, const obj_list& objs, topo_ctx* topo, mesh_ctx* ctx)
{
    for (const obj_h o : objs)
        for (int i = 0; i < 3; ++i)
            if (!live_nbr(rec(rec(o).tr), i)) fill_slot(index, o, i, topo, ctx);
}

stage_result link_nbrs(topo_ctx* topo, std::int32_t* err, mesh_ctx* ctx)
{
    if (!ctx->root) return stage_ok;
    obj_list objs = {};
    open_edges index = {};
    std::uint32_t count = 0;
    ++ctx->visit_stamp;
    const bool done =
        tree_collect(ctx->root, &objs, &count, ctx) && open_edges_load(ctx->visit_stamp, &index);
    if (!done) *err = err_no_memory;
    if (done && !link_pairs(index, *ctx)) fill_slots(index, objs, topo, ctx);
    open_edges_free(&index);
    list_free(&objs);
    return done ? stage_ok : stage_failed;
}

} // namespace velmora
