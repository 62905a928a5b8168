#include "repair/edge_groups.h"

#include "mesh/vec.h"

#include <algorithm>

namespace velmora {

namespace {

constexpr std::uint32_t k_few_sides = 24; ///< up to this many are sorted by insertion

bool is_finite(const float* pos)
{
    return std::isfinite(pos[0]) && std::isfinite(pos[1]) && std::isfinite(pos[2]);
}

// Both zeros have one hash, as they compare equal.
std::uint32_t hash_of(const float* pos)
{
    std::uint64_t h = 0;
    for (int i = 0; i < 3; ++i) {
        const float c = pos[i] + 0.0f;
        std::uint32_t bits;
        std::memcpy(&bits, &c, sizeof bits);
        h = (h ^ bits) * 0x9E3779B97F4A7C15ull;
        h ^= h >> 29;
    }
    return static_cast<std::uint32_t>(h >> 16);
}

// A set of positions with open addressing; half full at most.
struct position_set {
    vtx_h* slots;
    std::uint32_t mask;
};

bool position_set_init(std::uint32_t most, position_set* set)
{
    std::uint64_t size = 16;
    while (size < std::uint64_t{most} * 2)
        size *= 2;
    set->slots = static_cast<vtx_h*>(heap_alloc(sizeof(vtx_h) * size));
    set->mask = static_cast<std::uint32_t>(size - 1);
    if (!set->slots) return false;
    std::memset(static_cast<void*>(set->slots), 0, sizeof(vtx_h) * size);
    return true;
}

// False when another record stands where `v` does.
bool position_set_add(const position_set& set, vtx_h v)
{
    const float* pos = rec(v).pos;
    for (std::uint32_t at = hash_of(pos) & set.mask;; at = (at + 1) & set.mask) {
        vtx_h& slot = set.slots[at];
        if (!slot) slot = v;
        if (slot == v) return true;
        if (pts_same(rec(slot).pos, pos)) return false;
    }
}

// Vertices in use can't be more than this.
std::uint32_t most_vertices(const obj_list& objs)
{
    return std::min(vtx_pool.used, 3 * objs.count);
}

bool all_distinct(const obj_list& objs, const position_set& set)
{
    for (const obj_h o : objs)
        for (const vtx_h v : rec(rec(o).tr).vtx)
            if (!is_finite(rec(v).pos) || !position_set_add(set, v)) return false;
    return true;
}

struct side_ends {
    vtx_h low;
    vtx_h high;
};

side_ends ends_of(const tr_rec& tr, int e)
{
    const vtx_h a = tr.vtx[e];
    const vtx_h b = tr.vtx[next3(e)];
    return a.i < b.i ? side_ends{a, b} : side_ends{b, a};
}

// How many sides each vertex has, then where they end: filling walks the ends back to the starts.
void count_sides(const obj_list& objs, edge_groups* groups)
{
    std::uint32_t* starts = groups->starts;
    for (const obj_h o : objs)
        for (int e = 0; e < 3; ++e)
            ++starts[ends_of(rec(rec(o).tr), e).low.i];
    std::uint32_t sum = 0;
    for (std::uint32_t v = 0; v <= groups->vtx_count; ++v)
        starts[v] = sum += starts[v];
}

void fill_sides(const obj_list& objs, edge_groups* groups)
{
    for (const obj_h o : objs) {
        const tr_h t = rec(o).tr;
        for (int e = 0; e < 3; ++e) {
            const side_ends ends = ends_of(rec(t), e);
            const std::uint32_t at = t.i << 2 | static_cast<std::uint32_t>(e);
            groups->sides[--groups->starts[ends.low.i]] = {ends.high, at};
        }
    }
}

bool far_below(const edge_side& a, const edge_side& b)
{
    return a.far.i < b.far.i;
}

} // namespace

bool vertices_are_distinct(const obj_list& objs)
{
    if (tr_pool.used > k_most_grouped || objs.count > k_most_grouped) return false;
    position_set set;
    const bool distinct = position_set_init(most_vertices(objs), &set) && all_distinct(objs, set);
    heap_free(set.slots);
    return distinct;
}

bool edge_groups_build(const obj_list& objs, edge_groups* groups)
{
    *groups = {nullptr, nullptr, vtx_pool.used};
    const std::size_t starts = std::size_t{groups->vtx_count} + 2;
    groups->starts = static_cast<std::uint32_t*>(heap_alloc(sizeof(std::uint32_t) * starts));
    groups->sides =
        static_cast<edge_side*>(heap_alloc(sizeof(edge_side) * 3 * (std::size_t{objs.count} + 1)));
    if (!groups->starts || !groups->sides) {
        edge_groups_free(groups);
        return false;
    }
    std::memset(groups->starts, 0, sizeof(std::uint32_t) * starts);
    count_sides(objs, groups);
    fill_sides(objs, groups);
    return true;
}

void edge_groups_free(edge_groups* groups)
{
    heap_free(groups->sides);
    heap_free(groups->starts);
    *groups = {};
}

void edge_groups_sort(const edge_groups& groups, std::uint32_t v)
{
    edge_side* const first = groups.sides + groups.starts[v];
    edge_side* const last = groups.sides + groups.starts[v + 1];
    if (last - first > k_few_sides) {
        std::sort(first, last, far_below);
        return;
    }
    for (edge_side* at = first + 1; at < last; ++at) {
        const edge_side side = *at;
        edge_side* to = at;
        for (; to > first && far_below(side, to[-1]); --to)
            *to = to[-1];
        *to = side;
    }
}

} // namespace velmora
