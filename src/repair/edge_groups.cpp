#include "repair/edge_groups.h"

#include "mesh/cell_tree.h"
#include "mesh/measure.h"
#include "mesh/pt_hash.h"
#include "mesh/vec.h"

#include <algorithm>

namespace velmora {

namespace {

constexpr std::uint32_t k_few_sides = 24; ///< up to this many are sorted by insertion

bool is_finite(const float* pos)
{
    return std::isfinite(pos[0]) && std::isfinite(pos[1]) && std::isfinite(pos[2]);
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
    for (std::uint32_t at = pt_hash(pos) & set.mask;; at = (at + 1) & set.mask) {
        vtx_h& slot = set.slots[at];
        if (!slot) slot = v;
        if (slot == v) return true;
        if (pts_same(rec(slot).pos, pos)) return false;
    }
}

// Vertices in use can't be more than this.
std::uint32_t most_vertices(const mesh_ctx& ctx)
{
    return std::min(vtx_pool.used, 3 * ctx.tr_count);
}

bool all_distinct(mesh_ctx* ctx, const position_set& set)
{
    return for_each_obj_once(ctx, [&](obj_h, const cell_obj& obj) {
        for (const vtx_h v : rec(obj.tr).vtx)
            if (!is_finite(rec(v).pos) || !position_set_add(set, v)) return false;
        return true;
    });
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
// Returns the number of all sides, or none when a triangle has a vertex twice.
std::uint32_t count_sides(edge_groups* groups, mesh_ctx* ctx)
{
    std::uint32_t* starts = groups->starts;
    const bool countable = for_each_obj_once(ctx, [&](obj_h, const cell_obj& obj) {
        const tr_rec& tr = rec(obj.tr);
        for (int e = 0; e < 3; ++e)
            ++starts[ends_of(tr, e).low.i];
        return !tr_collapsed(tr);
    });
    std::uint32_t sum = 0;
    for (std::uint32_t v = 0; v <= groups->vtx_count; ++v)
        starts[v] = sum += starts[v];
    return countable ? sum : 0;
}

void fill_sides(const edge_groups& groups, mesh_ctx* ctx)
{
    for_each_obj_once(ctx, [&](obj_h, const cell_obj& obj) {
        for (int e = 0; e < 3; ++e) {
            const side_ends ends = ends_of(rec(obj.tr), e);
            const std::uint32_t at = obj.tr.i << 2 | static_cast<std::uint32_t>(e);
            groups.sides[--groups.starts[ends.low.i]] = {ends.high, at};
        }
        return true;
    });
}

bool build(edge_groups* groups, mesh_ctx* ctx)
{
    const std::size_t size = sizeof(std::uint32_t) * (std::size_t{groups->vtx_count} + 2);
    groups->starts = static_cast<std::uint32_t*>(heap_alloc(size));
    if (!groups->starts) return false;
    std::memset(groups->starts, 0, size);
    const std::uint32_t count = count_sides(groups, ctx);
    if (count == 0) return false;
    groups->sides = static_cast<edge_side*>(heap_alloc(sizeof(edge_side) * count));
    if (!groups->sides) return false;
    fill_sides(*groups, ctx);
    return true;
}

bool far_below(const edge_side& a, const edge_side& b)
{
    return a.far.i < b.far.i;
}

} // namespace

bool vertices_are_distinct(mesh_ctx* ctx)
{
    position_set set;
    const bool distinct = position_set_init(most_vertices(*ctx), &set) && all_distinct(ctx, set);
    heap_free(set.slots);
    return distinct;
}

void edge_groups_build(edge_groups* groups, mesh_ctx* ctx)
{
    *groups = {nullptr, nullptr, vtx_pool.used, false};
    if (tr_pool.used > k_most_grouped || !build(groups, ctx)) edge_groups_free(groups);
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

edge_group find_edge_group(const edge_groups& groups, vtx_h a, vtx_h b)
{
    const std::uint32_t low = std::min(a.i, b.i);
    const edge_side key = {{std::max(a.i, b.i)}, 0};
    const edge_side* const first = groups.sides + groups.starts[low];
    const edge_side* const last = groups.sides + groups.starts[low + 1];
    const auto range = std::equal_range(first, last, key, far_below);
    return {range.first, static_cast<std::uint32_t>(range.second - range.first)};
}

} // namespace velmora
