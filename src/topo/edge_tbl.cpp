#include "topo/edge_tbl.h"

#include "mesh/box.h"
#include "mesh/cell_tree.h"
#include "mesh/folded_cells.h"
#include "mesh/measure.h"
#include "mesh/sort.h"
#include "repair/edge_groups.h"
#include "topo/edge_users.h"

#include <cstring>

namespace velmora {

namespace {

constexpr std::uint32_t k_first_edges = 1000;
constexpr std::uint32_t k_first_users = 4;
constexpr std::uint32_t k_first_slots = 4096;

// The entry's slot, or the free one where it would stand; the table is never full.
std::uint32_t slot_of(const edge_tbl& tbl, vtx_h a, vtx_h b)
{
    const std::uint64_t low = a.i < b.i ? a.i : b.i;
    const std::uint64_t high = a.i < b.i ? b.i : a.i;
    std::uint64_t hash = (low << 32 | high) * 0x9E3779B97F4A7C15ull;
    hash ^= hash >> 32;
    auto slot = static_cast<std::uint32_t>(hash) & (tbl.slot_count - 1);
    for (; tbl.slots[slot] != 0; slot = (slot + 1) & (tbl.slot_count - 1)) {
        const edge_rec& e = tbl.entries[tbl.slots[slot] - 1];
        if ((e.a == a && e.b == b) || (e.a == b && e.b == a)) break;
    }
    return slot;
}

// At most half of the slots are ever in use.
bool reserve_slot(edge_tbl* tbl)
{
    if (tbl->count < tbl->slot_count / 2) return true;
    const std::uint32_t more = tbl->slot_count ? tbl->slot_count * 2 : k_first_slots;
    auto* slots = static_cast<std::uint32_t*>(heap_alloc(sizeof(std::uint32_t) * more));
    if (!slots) return false;
    std::memset(slots, 0, sizeof(std::uint32_t) * more);
    heap_free(tbl->slots);
    tbl->slots = slots;
    tbl->slot_count = more;
    for (std::uint32_t i = 0; i < tbl->count; ++i)
        slots[slot_of(*tbl, tbl->entries[i].a, tbl->entries[i].b)] = i + 1;
    return true;
}

bool reserve_entry(edge_tbl* tbl)
{
    if (tbl->entries && tbl->count < tbl->capacity) return true;
    const std::uint32_t more = tbl->capacity ? tbl->capacity * 2 : k_first_edges;
    void* grown = tbl->capacity ? mm_realloc(tbl->entries, sizeof(edge_rec) * tbl->capacity,
                                             sizeof(edge_rec) * more)
                                : mm_malloc(sizeof(edge_rec) * more);
    if (!grown) return false;
    tbl->entries = static_cast<edge_rec*>(grown);
    tbl->capacity = more;
    return true;
}

bool gather_user(obj_h o, edge_rec* edge)
{
    const tr_h t = rec(o).tr;
    const int slot = tr_edge_index(edge->a, edge->b, rec(t));
    if (slot < 0) return true;
    if (!edge_user_add(edge, o, static_cast<std::uint32_t>(slot))) return false;
    tr_set_mark(t, 27);
    return true;
}

// The table of sides knows the users, but not in what order a walk meets them; whose box is out of
// reach is none.
bool gather_from_sides(const edge_groups& sides, const aabb& box, edge_rec* edge)
{
    const edge_group group = find_edge_group(sides, edge->a, edge->b);
    for (std::uint32_t i = 0; i < group.count; ++i) {
        const obj_h o = rec(side_tr(group.first[i])).cell;
        if (box_overlap(rec(o).box, box) && !gather_user(o, edge)) return false;
    }
    return true;
}

bool has_new_user(const cell_node& folded, const aabb& box, const edge_rec& edge,
                  std::uint32_t stamp)
{
    return any_folded(folded, [&](obj_h o) {
        const cell_obj& obj = rec(o);
        return obj.stamp != stamp && box_overlap(obj.box, box) &&
               tr_edge_index(edge.a, edge.b, rec(obj.tr)) >= 0;
    });
}

// Users are found by the box of one of them, whose margin covers that of all others.
bool gather_from_tree(const aabb& box, edge_rec* edge, mesh_ctx* ctx)
{
    const auto enter = [&](const cell_node& node) { return box_overlap(node.box, box); };
    const auto unfolds = [&](const cell_node& node) {
        return has_new_user(node, box, *edge, ctx->visit_stamp);
    };
    return walk_leaves(ctx->root, enter, unfolds, [&](cell_node& leaf) {
        for (const obj_h o : leaf.list) {
            cell_obj& obj = rec(o);
            if (obj.stamp == ctx->visit_stamp) continue;
            obj.stamp = ctx->visit_stamp;
            if (box_overlap(obj.box, box) && !gather_user(o, edge)) return false;
        }
        return true;
    });
}

// In the order of such a walk, too. The box is that of a user, and so holds something.
bool gather_known(const edge_users& users, const aabb& box, user_lookup* lookup, edge_rec* edge,
                  const mesh_ctx& ctx)
{
    edge_users met;
    const bool done = users_on_walk(users, box, ctx, lookup, &met);
    for (std::uint32_t i = 0; i < met.count; ++i)
        if (!gather_user(met.objs[i], edge)) return false;
    return done;
}

// Users are freed in the order of their areas. Where no two are equal the table of sides will do;
// between equals the walk decides, as of duplicates that are linked twice the first to go takes
// links of the other with it.
bool areas_differ(const edge_rec& edge)
{
    for (std::uint32_t i = 1; i < edge.count; ++i) {
        const double before = tr_area(rec(rec(edge.users[i - 1].obj).tr));
        if (!(before < tr_area(rec(rec(edge.users[i].obj).tr)))) return false;
    }
    return true;
}

void drop_users(edge_rec* edge)
{
    while (edge->count > 0)
        cell_obj_release(edge->users[--edge->count].obj);
}

// Takes a user's link across the edge away on both sides.
void unlink_edge(const edge_rec& edge, tr_h t)
{
    const int k = tr_edge_index(edge.a, edge.b, rec(t));
    if (k < 0) return;
    const tr_h n = live_nbr(rec(t), k);
    rec(t).nbr[k] = {};
    if (!n) return;
    const int back = tr_nbr_index(t, rec(n));
    if (back >= 0) rec(n).nbr[back] = {};
}

void edge_rec_free(edge_rec* edge)
{
    constexpr std::uint64_t k_marks = tr_edge_err | tr_edge_err2;
    for (std::uint32_t i = 0; i < edge->count; ++i) {
        const obj_h o = edge->users[i].obj;
        rec(rec(o).tr).flags &= ~k_marks;
        unlink_edge(*edge, rec(o).tr);
        cell_obj_release(o);
    }
    heap_free(edge->users);
}

} // namespace

edge_rec* edge_tbl_find(const edge_tbl& tbl, vtx_h a, vtx_h b)
{
    if (tbl.slot_count == 0) return nullptr;
    const std::uint32_t entry = tbl.slots[slot_of(tbl, a, b)];
    return entry ? &tbl.entries[entry - 1] : nullptr;
}

edge_rec* edge_tbl_add(edge_tbl* tbl, vtx_h a, vtx_h b)
{
    if (!reserve_entry(tbl) || !reserve_slot(tbl)) return nullptr;
    const std::uint32_t slot = slot_of(*tbl, a, b);
    edge_rec* edge = &tbl->entries[tbl->count];
    *edge = {a, b, 0, 0, nullptr};
    tbl->slots[slot] = ++tbl->count;
    return edge;
}

bool edge_user_add(edge_rec* edge, obj_h obj, std::uint32_t slot)
{
    if (edge->count == edge->capacity) {
        const std::uint32_t more = edge->capacity ? edge->capacity * 2 : k_first_users;
        void* grown = edge->capacity ? mm_realloc(edge->users, sizeof(edge_user) * edge->capacity,
                                                  sizeof(edge_user) * more)
                                     : mm_malloc(sizeof(edge_user) * more);
        if (!grown) return false;
        edge->users = static_cast<edge_user*>(grown);
        edge->capacity = more;
    }
    edge->users[edge->count++] = {slot, cell_obj_ref(obj)};
    return true;
}

bool edge_users_sort(edge_rec* edge)
{
    struct by_area {
        double area;
        edge_user user;
    };
    if (edge->count < 2) return true;
    const std::size_t n = edge->count;
    auto* items = static_cast<by_area*>(heap_alloc(sizeof(by_area) * 2 * n));
    if (!items) return false;
    for (std::size_t i = 0; i < n; ++i)
        items[i] = {tr_area(rec(rec(edge->users[i].obj).tr)), edge->users[i]};
    merge_sort(items, items + n, n,
               [](const by_area& x, const by_area& y) { return x.area < y.area; });
    for (std::size_t i = 0; i < n; ++i)
        edge->users[i] = items[i].user;
    heap_free(items);
    return true;
}

// The users of an edge do not change between two claims on it, so that one sort is enough.
bool note_edge_error(vtx_h a, vtx_h b, edge_tbl* tbl, obj_h obj, user_lookup* lookup, mesh_ctx* ctx)
{
    if (edge_tbl_find(*tbl, a, b)) return true;
    edge_rec* edge = edge_tbl_add(tbl, a, b);
    if (!edge) return false;
    ++ctx->visit_stamp;
    const aabb& box = rec(obj).box;
    const edge_groups& sides = *ctx->topo->sides;
    if (groups_can_be_found(sides)) {
        if (!gather_from_sides(sides, box, edge) || !edge_users_sort(edge)) return false;
        if (areas_differ(*edge)) return true;
        drop_users(edge);
    }
    edge_users users;
    const bool known = lookup && find_users(*lookup, a, b, &users);
    const bool gathered =
        known ? gather_known(users, box, lookup, edge, *ctx) : gather_from_tree(box, edge, ctx);
    return edge_users_sort(edge) && gathered;
}

void edge_tbl_free(edge_tbl* tbl)
{
    for (std::uint32_t i = 0; i < tbl->count; ++i)
        edge_rec_free(&tbl->entries[i]);
    heap_free(tbl->entries);
    heap_free(tbl->slots);
    *tbl = {};
}

void edge_tbl_audit(count_audit* audit, const edge_tbl& tbl)
{
    for (std::uint32_t i = 0; i < tbl.count; ++i)
        for (std::uint32_t u = 0; u < tbl.entries[i].count; ++u)
            audit_obj(audit, tbl.entries[i].users[u].obj);
}

} // namespace velmora
