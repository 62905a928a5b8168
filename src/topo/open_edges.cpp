#include "topo/open_edges.h"

#include "mesh/measure.h"

#include <cstring>

namespace velmora {

namespace {

constexpr std::uint32_t k_first_edges = 256;

struct edge_ends {
    vtx_h a;
    vtx_h b;
};

edge_ends ends_of(const tr_rec& tr, int i)
{
    const vtx_h from = tr.vtx[i];
    const vtx_h to = tr.vtx[next3(i)];
    return from.i < to.i ? edge_ends{from, to} : edge_ends{to, from};
}

// The edge's slot, or the free one where it would stand; the table is never full.
std::uint32_t* slot_of(const open_edges& index, edge_ends ends)
{
    std::uint64_t hash = (static_cast<std::uint64_t>(ends.a.i) << 32 | ends.b.i);
    hash *= 0x9E3779B97F4A7C15ull;
    auto slot = static_cast<std::uint32_t>(hash >> 32) & (index.slot_count - 1);
    for (; index.slots[slot] != 0; slot = (slot + 1) & (index.slot_count - 1)) {
        const open_edge& e = index.edges[index.slots[slot] - 1];
        if (e.a == ends.a && e.b == ends.b) break;
    }
    return &index.slots[slot];
}

bool grow(open_edges* index)
{
    const std::uint32_t capacity = index->capacity ? index->capacity * 2 : k_first_edges;
    void* edges = heap_realloc(index->edges, sizeof(open_edge) * capacity);
    if (!edges) return false;
    index->edges = static_cast<open_edge*>(edges);
    index->capacity = capacity;
    heap_free(index->slots);
    index->slot_count = capacity * 2;
    const std::size_t size = sizeof(std::uint32_t) * index->slot_count;
    index->slots = static_cast<std::uint32_t*>(heap_alloc(size));
    if (!index->slots) return false;
    std::memset(index->slots, 0, size);
    for (std::uint32_t e = 0; e < index->count; ++e)
        *slot_of(*index, {index->edges[e].a, index->edges[e].b}) = e + 1;
    return true;
}

void add_kind(open_edge* edge, vtx_h third, obj_h obj)
{
    for (edge_kind& kind : edge->kinds) {
        if (kind.count != 0 && kind.third != third) continue;
        if (kind.count++ == 0) {
            kind.third = third;
            kind.first = obj;
        }
        return;
    }
    edge->more_kinds = true;
}

bool add_user(open_edges* index, obj_h obj, int i)
{
    if (index->count == index->capacity && !grow(index)) return false;
    const tr_rec& tr = rec(rec(obj).tr);
    const edge_ends ends = ends_of(tr, i);
    std::uint32_t* const slot = slot_of(*index, ends);
    if (*slot == 0) {
        index->edges[index->count] = {ends.a, ends.b, {}, false};
        *slot = ++index->count;
    }
    add_kind(&index->edges[*slot - 1], tr.vtx[prev3(i)], obj);
    return true;
}

// Marks both ends of every open edge; returns whether there is one.
bool mark_open_ends(const obj_list& objs, std::uint8_t* marks, bool* collapsed)
{
    bool open = false;
    for (const obj_h o : objs) {
        const tr_rec& tr = rec(rec(o).tr);
        if (tr_collapsed(tr)) *collapsed = true;
        for (int i = 0; i < 3; ++i) {
            if (live_nbr(tr, i)) continue;
            marks[tr.vtx[i].i] = marks[tr.vtx[next3(i)].i] = 1;
            open = true;
        }
    }
    return open;
}

// Every edge between two marked ends, open or not: an open one may be claimed from either side.
bool add_marked(const obj_list& objs, const std::uint8_t* marks, open_edges* index)
{
    for (const obj_h o : objs) {
        const tr_rec& tr = rec(rec(o).tr);
        for (int i = 0; i < 3; ++i)
            if (marks[tr.vtx[i].i] && marks[tr.vtx[next3(i)].i] && !add_user(index, o, i))
                return false;
    }
    return true;
}

} // namespace

bool open_edges_load(const obj_list& objs, open_edges* index)
{
    *index = {};
    if (objs.count == 0) return true;
    auto* marks = static_cast<std::uint8_t*>(heap_alloc(vtx_pool.used));
    if (!marks) return false;
    std::memset(marks, 0, vtx_pool.used);
    bool done = true;
    if (mark_open_ends(objs, marks, &index->collapsed) && !index->collapsed)
        done = add_marked(objs, marks, index);
    heap_free(marks);
    if (!done) open_edges_free(index);
    return done;
}

void open_edges_free(open_edges* index)
{
    heap_free(index->edges);
    heap_free(index->slots);
    *index = {};
}

partner_count edge_partner(const open_edges& index, const tr_rec& tr, int i, obj_h* partner)
{
    if (index.collapsed || index.slot_count == 0) return maybe_more;
    const std::uint32_t place = *slot_of(index, ends_of(tr, i));
    if (place == 0) return maybe_more;
    const open_edge& edge = index.edges[place - 1];
    if (edge.more_kinds) return maybe_more;
    const vtx_h third = tr.vtx[prev3(i)];
    const edge_kind& other = edge.kinds[edge.kinds[0].third == third ? 1 : 0];
    if (other.count == 0) return no_partner;
    *partner = other.first;
    return other.count == 1 ? one_partner : maybe_more;
}

} // namespace velmora
