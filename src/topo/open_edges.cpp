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

std::uint64_t hash_of(edge_ends ends)
{
    const std::uint64_t both = static_cast<std::uint64_t>(ends.a.i) << 32 | ends.b.i;
    const std::uint64_t hash = both * 0x9E3779B97F4A7C15ull;
    return hash ^ hash >> 32;
}

// The edge's slot, or the free one where it would stand; the table is never full.
std::uint32_t* slot_of(const open_edges& index, edge_ends ends)
{
    auto slot = static_cast<std::uint32_t>(hash_of(ends)) & (index.slot_count - 1);
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

// A bit for each hash of an open edge, several times as many as there are such edges: it keeps the
// many closed ones out of the index, without a look at it.
struct edge_filter {
    std::uint64_t* words; // owned
    std::uint32_t mask;   // of bit numbers
};

constexpr std::uint32_t k_bits_per_edge = 8;

bool filter_new(edge_filter* filter, std::uint32_t edges)
{
    std::uint64_t bits = 1024;
    while (bits < static_cast<std::uint64_t>(edges) * k_bits_per_edge && bits < 0x80000000u)
        bits *= 2;
    filter->mask = static_cast<std::uint32_t>(bits - 1);
    filter->words = static_cast<std::uint64_t*>(heap_alloc(bits / 8));
    if (!filter->words) return false;
    std::memset(filter->words, 0, bits / 8);
    return true;
}

void filter_set(const edge_filter& filter, edge_ends ends)
{
    const auto bit = static_cast<std::uint32_t>(hash_of(ends)) & filter.mask;
    filter.words[bit / 64] |= 1ull << bit % 64;
}

bool filter_has(const edge_filter& filter, edge_ends ends)
{
    const auto bit = static_cast<std::uint32_t>(hash_of(ends)) & filter.mask;
    return filter.words[bit / 64] >> bit % 64 & 1;
}

std::uint32_t count_open(std::uint32_t stamp, bool* collapsed)
{
    std::uint32_t open = 0;
    for_each_stamped(stamp, [&](obj_h, const tr_rec& tr) {
        if (tr_collapsed(tr)) *collapsed = true;
        open += static_cast<std::uint32_t>(3 - tr_nbr_count(tr));
    });
    return open;
}

void filter_fill(const edge_filter& filter, std::uint32_t stamp)
{
    for_each_stamped(stamp, [&](obj_h, const tr_rec& tr) {
        for (int i = 0; i < 3; ++i)
            if (!live_nbr(tr, i)) filter_set(filter, ends_of(tr, i));
    });
}

// Closed sides of open edges belong to them, as they may be claimed in error.
bool add_filtered(const edge_filter& filter, std::uint32_t stamp, open_edges* index)
{
    bool done = true;
    for_each_stamped(stamp, [&](obj_h o, const tr_rec& tr) {
        for (int i = 0; i < 3; ++i)
            if (done && filter_has(filter, ends_of(tr, i))) done = add_user(index, o, i);
    });
    return done;
}

} // namespace

bool open_edges_load(std::uint32_t stamp, open_edges* index)
{
    *index = {};
    const std::uint32_t open = count_open(stamp, &index->collapsed);
    if (open == 0 || index->collapsed) return true;
    edge_filter filter;
    bool done = filter_new(&filter, open);
    if (done) {
        filter_fill(filter, stamp);
        done = add_filtered(filter, stamp, index);
    }
    heap_free(filter.words);
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
    if (index.slot_count == 0) return maybe_more;
    const std::uint32_t place = *slot_of(index, ends_of(tr, i));
    if (place == 0) return maybe_more;
    const open_edge& edge = index.edges[place - 1];
    if (edge.more_kinds) return maybe_more;
    const int own = edge.kinds[0].third == tr.vtx[prev3(i)] ? 0 : 1;
    const edge_kind& other = edge.kinds[1 - own];
    if (other.count == 0) return no_partner;
    if (other.count > 1) return maybe_more;
    *partner = other.first;
    return edge.kinds[own].count == 1 ? only_pair : one_partner;
}

} // namespace velmora
