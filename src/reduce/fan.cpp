#include "reduce/fan.h"

#include "mesh/box.h"
#include "mesh/cell_tree.h"
#include "mesh/folded_cells.h"
#include "mesh/measure.h"

namespace velmora {

namespace {

// A fan has at most one triangle more than a vertex count can say; it grows from the middle of the
// scratch both ways.
constexpr std::uint32_t k_most_trs = 65536 + 1;

struct fan_scratch {
    tr_h trs[2 * k_most_trs + 2];
    std::uint32_t head; // first in use
    std::uint32_t tail; // one past the last
};

fan_scratch scratch;

std::uint32_t scratch_count()
{
    return scratch.tail - scratch.head;
}

// The edge by which a walk round a vertex leaves a triangle that has it at `corner` and was entered
// by edge `entry`; -1 ends the walk.
int leaving_edge(int corner, int entry)
{
    if (corner < 0 || entry < 0) return corner;
    return corner == entry ? prev3(entry) : corner;
}

// How a walk round a vertex ended.
enum walk_end {
    walk_stopped,    // at a free edge, or at something that is no fan
    walk_came_round, // but not by edges at the vertex alone
    walk_is_ring     // all triangles were entered by one edge at the vertex and left by the other
};

// Walks from `start` over its edge `edge` and on, handing each triangle to `add`.
template <class add_fn> walk_end walk_round(vtx_h v, tr_h start, int edge, const add_fn& add)
{
    const std::uint32_t bound = rec(v).refs;
    tr_h prev = start;
    tr_h next = live_nbr(rec(start), edge);
    bool plain = true;
    while (next && next != start && scratch_count() <= bound) {
        add(next);
        const tr_rec& tr = rec(next);
        const int corner = tr_vtx_index(v, tr);
        const int entry = tr_nbr_index(prev, tr);
        plain = plain && corner >= 0 && (entry == corner || entry == prev3(corner));
        const int leave = leaving_edge(corner, entry);
        prev = next;
        next = leave < 0 ? tr_h{} : live_nbr(tr, leave);
    }
    if (next != start) return walk_stopped;
    return plain && live_nbr(rec(start), prev3(edge)) ? walk_is_ring : walk_came_round;
}

// Returns whether the fan is a ring, whose triangles all have both neighbours at the vertex.
bool walk_fan(vtx_h v, tr_h start)
{
    const int corner = tr_vtx_index(v, rec(start));
    scratch.head = k_most_trs;
    scratch.tail = scratch.head;
    scratch.trs[scratch.tail++] = start;
    const walk_end end =
        walk_round(v, start, corner, [](tr_h t) { scratch.trs[scratch.tail++] = t; });
    if (end == walk_stopped)
        walk_round(v, start, prev3(corner), [](tr_h t) { scratch.trs[--scratch.head] = t; });
    return end == walk_is_ring;
}

bool reserve_fans(vtx_table* table, std::uint64_t more)
{
    const std::uint64_t wanted = table->fans_used + more;
    if (wanted <= table->fans_capacity) return true;
    const std::uint64_t capacity = wanted + table->fans_used / 4;
    void* grown = heap_realloc(table->fans, sizeof(tr_h) * capacity);
    if (!grown) return false;
    table->fans = static_cast<tr_h*>(grown);
    table->fans_capacity = static_cast<std::uint32_t>(capacity);
    return true;
}

bool keep_fan(vtx_table* table, vtx_info* info)
{
    const std::uint32_t count = scratch_count();
    if (!reserve_fans(table, count)) return false;
    std::memcpy(table->fans + table->fans_used, scratch.trs + scratch.head, sizeof(tr_h) * count);
    info->fan_at = table->fans_used;
    info->fan_count = count;
    table->fans_used += count;
    return true;
}

vtx_type fan_type(const vtx_table& table, const vtx_info& info, vtx_type type)
{
    for (const tr_h t : fan_of(table, info)) {
        const tr_rec& tr = rec(t);
        const int i = tr_vtx_index(info.vtx, tr);
        if (i < 0) continue;
        if (!live_nbr(tr, i) || !live_nbr(tr, prev3(i))) return vtx_open;
        type = vtx_closed;
    }
    return type;
}

// The first triangle at each vertex, in the order in which a descent with the vertex as the point
// meets them: the first leaf that holds the point lists all of them, so one walk over all leaves
// answers for every vertex at once.
struct first_trs {
    const vtx_table& table;
    tr_h* firsts;
};

bool is_listed(const vtx_rec& vtx, const vtx_table& table)
{
    return vtx.tbl_index - 1 < table.count;
}

void note_in_leaf(const cell_node& leaf, const first_trs& job)
{
    for (const obj_h o : leaf.list) {
        const tr_h t = rec(o).tr;
        for (const vtx_h v : rec(t).vtx) {
            const vtx_rec& vtx = rec(v);
            const std::uint32_t place = vtx.tbl_index - 1;
            if (!is_listed(vtx, job.table) || job.firsts[place]) continue;
            if (pt_in_box(leaf.box, vtx.pos)) job.firsts[place] = t;
        }
    }
}

// Moves the vertices that lie in the box in front of the others; returns how many.
std::uint32_t part_vtxs(const aabb& box, vtx_h* vtxs, std::uint32_t count)
{
    std::uint32_t inside = 0;
    for (std::uint32_t i = 0; i < count; ++i) {
        const vtx_h v = vtxs[i];
        if (!pt_in_box(box, rec(v).pos)) continue;
        vtxs[i] = vtxs[inside];
        vtxs[inside++] = v;
    }
    return inside;
}

// The same below a node whose box contains all of `vtxs`, whose order changes. Lists of leaves in
// which no vertex lies are left out. A vertex on the cut lies in both halves.
void note_below(node_h n, vtx_h* vtxs, std::uint32_t count, const first_trs& job)
{
    if (count == 0) return;
    const cell_node& node = rec(n);
    if (is_leaf(node)) {
        note_in_leaf(node, job);
        return;
    }
    if (node.folded && !cell_unfold(n)) return;
    note_below(node.low, vtxs, part_vtxs(rec(node.low).box, vtxs, count), job);
    note_below(node.high, vtxs, part_vtxs(rec(node.high).box, vtxs, count), job);
}

// Where lists are long, most leaves list many triangles whose vertices all lie elsewhere. False
// when memory ran out; nothing has happened then.
bool note_by_vertices(const first_trs& job, const mesh_ctx& ctx)
{
    auto* const vtxs = heap_array<vtx_h>(vtx_pool.used);
    if (!vtxs) return false;
    std::uint32_t count = 0;
    for (std::uint32_t i = 1; i < vtx_pool.used; ++i)
        if (rec(vtx_h{i}).holders != 0 && is_listed(rec(vtx_h{i}), job.table)) vtxs[count++] = {i};
    note_below(ctx.root, vtxs, part_vtxs(rec(ctx.root).box, vtxs, count), job);
    heap_free(vtxs);
    return true;
}

void note_first_trs(const first_trs& job, mesh_ctx* ctx)
{
    constexpr std::uint32_t k_long_list = 1000; // no list of a clean model is that long
    if ((ctx->longest_list > k_long_list || the_fold.used) && note_by_vertices(job, *ctx)) return;
    walk_leaves(ctx->root, everywhere, [&](const cell_node& leaf) {
        note_in_leaf(leaf, job);
        return true;
    });
}

// A record that holds another vertex by now is that of a removed one: where that lives on in
// triangles beyond its fan, the record gets none all the same.
bool build_fan(vtx_table* table, std::uint32_t place, tr_h first)
{
    vtx_info& info = table->infos[place];
    info.fan_count = 0;
    if (!first || rec(info.vtx).tbl_index != place + 1) return true;
    const bool is_ring = walk_fan(info.vtx, first);
    if (!keep_fan(table, &info)) return false;
    table->types[place] = is_ring ? vtx_closed : fan_type(*table, info, table->types[place]);
    return true;
}

// Room for all corners is taken at once, if there is that much.
bool build_fans(vtx_table* table, const tr_h* firsts, std::uint32_t tr_count)
{
    table->fans_used = 0;
    reserve_fans(table, std::uint64_t{3} * tr_count);
    for (std::uint32_t i = 0; i < table->count; ++i)
        if (!build_fan(table, i, firsts[i])) return false;
    return true;
}

} // namespace

stage_result vtx_table_refresh(vtx_table* table, std::int32_t* err, mesh_ctx* ctx)
{
    if (table->count == 0) return stage_ok;
    const std::size_t size = sizeof(tr_h) * table->count;
    auto* firsts = static_cast<tr_h*>(heap_alloc(size));
    bool done = firsts != nullptr;
    if (done) {
        std::memset(static_cast<void*>(firsts), 0, size);
        note_first_trs({*table, firsts}, ctx);
        done = build_fans(table, firsts, ctx->tr_count);
    }
    heap_free(firsts);
    if (done) return stage_ok;
    *err = err_no_memory;
    return stage_failed;
}

} // namespace velmora
