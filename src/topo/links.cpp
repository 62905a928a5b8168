#include "topo/links.h"

#include "mesh/box.h"
#include "mesh/cell_tree.h"
#include "mesh/log.h"
#include "mesh/measure.h"
#include "repair/edge_groups.h"
#include "topo/crowded_edge.h"
#include "topo/edge_tbl.h"
#include "topo/edge_users.h"

#include <cstring>

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
    crowded_edges* crowds; // of the edge, if it has many users; else null
    user_lookup* lookup;   // of a pass that has a table of sides; else null
    bool noted;            // the edge is in the table of edge errors
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

// A search may meet thousands of users of its edge; it is listed once.
bool list_error(obj_h obj, obj_list* list)
{
    return (list->count != 0 && list_at(*list, 0) == obj) || list_push(list, obj);
}

// A failure ends the search as if there were nothing to find, so the log has to tell of it.
bool note_claims(std::uint32_t count, edge_search* s)
{
    s->topo->edge_errors += count;
    if (s->noted || count == 0) return true;
    s->noted = list_error(s->obj, &s->topo->edge_err_list) &&
               note_edge_error(s->a, s->b, &s->topo->edge_errs, s->obj, s->lookup, s->ctx);
    if (s->noted) return true;
    log_line("mm_malloc: no more memory available\n");
    return false;
}

// Edge `k` of `t2` is the edge searched for: it is free, or the claim is an error.
scan_step claim_edge(edge_search* s, tr_h t2, int k)
{
    tr_rec& other = rec(t2);
    if (!live_nbr(other, k)) {
        other.nbr[k] = s->tr;
        rec(s->tr).nbr[s->i] = t2;
        return scan_done;
    }
    if (tr_nbr_index(s->tr, other) >= 0) return scan_on;
    return note_claims(1, s) ? scan_on : scan_failed;
}

// A duplicate is never a neighbour of its twin, whatever edges it has.
scan_step scan_triangle(edge_search* s, tr_h t2)
{
    scan_step result = scan_on;
    for (int k = 0; k < 3; ++k) {
        const tr_rec& other = rec(t2);
        if (!is_edge(*s, other.vtx[k], other.vtx[next3(k)])) continue;
        if (tr_same_vertices(rec(s->tr), other)) return scan_on;
        const scan_step step = claim_edge(s, t2, k);
        if (step == scan_failed) return scan_failed;
        if (step == scan_done) result = scan_done;
    }
    return result;
}

// True when the search is over.
bool scan_obj(edge_search* s, obj_h o, bool* linked)
{
    const scan_step step = o == s->obj ? scan_on : scan_triangle(s, rec(o).tr);
    *linked = step == scan_done;
    return step != scan_on;
}

// The first free partner in list order wins.
bool scan_leaf(edge_search* s, const obj_list& list)
{
    bool linked = false;
    for (const obj_h o : list)
        if (scan_obj(s, o, &linked)) break;
    return linked;
}

// The same without passing those that do not have the edge.
bool scan_users(edge_search* s, const edge_users& users, const cell_node& leaf)
{
    edge_users listed;
    users_in_leaf(users, leaf, s->lookup, &listed);
    bool linked = false;
    for (std::uint32_t i = 0; i < listed.count; ++i)
        if (scan_obj(s, listed.objs[i], &linked)) break;
    return linked;
}

// The same without passing each user: claims on those before the first that serves.
bool scan_crowd(edge_search* s, const crowded_edge& edge)
{
    std::uint32_t free = 0;
    std::uint32_t at = next_free_user(edge, 0);
    for (; at < edge.count; at = next_free_user(edge, at + 1)) {
        const tr_h t2 = edge.users[at].tr;
        if (t2 != s->tr && !tr_same_vertices(rec(s->tr), rec(t2))) break;
        ++free;
    }
    if (!note_claims(count_claims(edge, at, free, s->tr), s) || at == edge.count) return false;
    return claim_edge(s, edge.users[at].tr, edge.users[at].slot) == scan_done;
}

bool search_leaf(edge_search* s, const cell_node& leaf)
{
    const crowded_edge* crowd = s->crowds ? find_crowd(s->crowds, s->a, s->b, leaf) : nullptr;
    if (crowd && crowd->mutual) return scan_crowd(s, *crowd);
    edge_users users;
    const bool known =
        s->lookup && leaf.list.count >= k_long_list && find_users(*s->lookup, s->a, s->b, &users);
    return known ? scan_users(s, users, leaf) : scan_leaf(s, leaf.list);
}

bool search_tree(edge_search* s)
{
    const float* a = rec(s->a).pos;
    const auto enter = [&](const cell_node& node) { return pt_in_box(node.box, a); };
    const auto not_found = [&](const cell_node& leaf) { return !search_leaf(s, leaf); };
    return !walk_leaves(s->ctx->root, enter, not_found);
}

edge_search search_from(obj_h obj, int i, topo_ctx* topo, mesh_ctx* ctx)
{
    const tr_h t = rec(obj).tr;
    return {obj, t, i, rec(t).vtx[i], rec(t).vtx[next3(i)], topo, ctx, nullptr, nullptr, false};
}

} // namespace

bool find_nbr(obj_h obj, int i, topo_ctx* topo, mesh_ctx* ctx)
{
    edge_search s = search_from(obj, i, topo, ctx);
    return search_tree(&s);
}

namespace {

// The slots that are still to be searched for, as bits of a byte for each triangle. The memory for
// it is there from the start, so that each table of sides serves.
struct slot_marks {
    std::uint8_t* slots; // by triangle handle; owned
    bool any;
};

void mark_slot(edge_side side, slot_marks* marks)
{
    std::uint8_t& slots = marks->slots[side_tr(side).i];
    slots = static_cast<std::uint8_t>(slots | 1 << side_slot(side));
    marks->any = true;
}

bool is_open(edge_side side)
{
    return !live_nbr(rec(side_tr(side)), side_slot(side));
}

vtx_h third_of(edge_side side)
{
    return rec(side_tr(side)).vtx[prev3(side_slot(side))];
}

// The search through the tree from one side finds the other only by its box, and only within the
// tree.
bool search_would_find(edge_side from, edge_side partner, const aabb& root_box)
{
    const float* a = corner_pos(rec(side_tr(from)), side_slot(from));
    return pt_in_box(rec(rec(side_tr(partner)).cell).box, a) && pt_in_box(root_box, a);
}

// An edge with two users, whom nobody can be in the way of, so that their order is no matter.
// Duplicates never link to each other.
void settle_pair(edge_side a, edge_side b, const aabb& root_box, slot_marks* marks)
{
    const bool a_open = is_open(a);
    const bool b_open = is_open(b);
    if (!(a_open || b_open) || third_of(a) == third_of(b)) return;
    if (a_open && b_open &&
        (search_would_find(a, b, root_box) || search_would_find(b, a, root_box))) {
        rec(side_tr(a)).nbr[side_slot(a)] = side_tr(b);
        rec(side_tr(b)).nbr[side_slot(b)] = side_tr(a);
        return;
    }
    if (a_open) mark_slot(a, marks);
    if (b_open) mark_slot(b, marks);
}

// With more users the order of the leaves decides, unless all are duplicates of each other.
void settle_crowd(const edge_group& group, slot_marks* marks)
{
    const vtx_h third = third_of(group.first[0]);
    bool alike = true;
    for (std::uint32_t i = 1; i < group.count && alike; ++i)
        alike = third_of(group.first[i]) == third;
    for (std::uint32_t i = 0; i < group.count && !alike; ++i)
        if (is_open(group.first[i])) mark_slot(group.first[i], marks);
}

// Links what can be linked by the table alone, and marks the open slots that are left.
void settle_groups(edge_groups* groups, const aabb& root_box, slot_marks* marks)
{
    for_each_edge_group(groups, [&](const edge_group& group) {
        if (group.count == 2) settle_pair(group.first[0], group.first[1], root_box, marks);
        if (group.count > 2) settle_crowd(group, marks);
    });
}

bool marks_init(std::uint8_t fill, slot_marks* marks)
{
    marks->slots = static_cast<std::uint8_t*>(heap_alloc(tr_pool.used + std::size_t{1}));
    marks->any = fill != 0;
    if (marks->slots) std::memset(marks->slots, fill, tr_pool.used + std::size_t{1});
    return marks->slots != nullptr;
}

bool is_crowded(const edge_groups& sides, vtx_h a, vtx_h b)
{
    return groups_can_be_found(sides) && find_edge_group(sides, a, b).count >= k_crowd;
}

// What a pass knows besides the tree.
struct pass_tables {
    crowded_edges crowds;
    user_lookup lookup;
};

void search_slot(obj_h o, int i, pass_tables* tables, topo_ctx* topo, mesh_ctx* ctx)
{
    edge_search s = search_from(o, i, topo, ctx);
    s.lookup = &tables->lookup;
    if (is_crowded(*topo->sides, s.a, s.b)) s.crowds = &tables->crowds;
    search_tree(&s);
}

// In list order, as earlier links take partners away from later ones.
bool search_marked(const slot_marks& marks, topo_ctx* topo, mesh_ctx* ctx)
{
    obj_list objs = {};
    pass_tables tables = {{}, user_lookup_open(*topo->sides, *ctx)};
    std::uint32_t count = 0;
    ++ctx->visit_stamp;
    const bool done = tree_collect(ctx->root, &objs, &count, ctx);
    for (const obj_h o : objs) {
        const tr_h t = rec(o).tr;
        for (int i = 0; done && i < 3; ++i)
            if ((marks.slots[t.i] >> i & 1) && !live_nbr(rec(t), i))
                search_slot(o, i, &tables, topo, ctx);
    }
    user_lookup_close(&tables.lookup);
    crowds_free(&tables.crowds);
    list_free(&objs);
    return done;
}

} // namespace

stage_result link_nbrs(topo_ctx* topo, std::int32_t* err, mesh_ctx* ctx)
{
    constexpr std::uint8_t k_all_slots = 7;
    if (!ctx->root) return stage_ok;
    const bool has_table = topo->sides->starts != nullptr;
    slot_marks marks;
    bool done = marks_init(has_table ? 0 : k_all_slots, &marks);
    if (done && has_table) settle_groups(topo->sides, rec(ctx->root).box, &marks);
    if (done && marks.any) done = search_marked(marks, topo, ctx);
    heap_free(marks.slots);
    if (!done) *err = err_no_memory;
    return done ? stage_ok : stage_failed;
}

} // namespace velmora
