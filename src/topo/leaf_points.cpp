#include "topo/leaf_points.h"

#include "mesh/box.h"
#include "mesh/pt_grid.h"
#include "mesh/vec.h"

#include <cmath>
#include <cstring>

namespace velmora {

constexpr std::uint32_t k_nothing = 0xFFFFFFFFu;

/// A place where corners are.
struct leaf_place {
    float pos[3];
    std::uint32_t next;   ///< in the same chain of the hash
    std::uint32_t parent; ///< towards the cluster's first place, which is its own
    // Of a first place:
    std::uint32_t count; ///< members of the cluster, then where the next one goes
    bool all_meet;       ///< as in point_cluster
    float low[3];        ///< the box of all places in the cluster
    float high[3];
};

namespace {

const int k_here[3] = {0, 0, 0};

std::uint32_t* chain_at(const leaf_points& leaf, std::uint32_t hash)
{
    return &leaf.heads[hash & (leaf.head_count - 1)];
}

std::uint32_t first_place(leaf_place* places, std::uint32_t p)
{
    while (places[p].parent != p)
        p = places[p].parent = places[places[p].parent].parent;
    return p;
}

void join_close_places(const leaf_points& leaf, const pt_grid& grid, std::uint32_t chain,
                       std::uint32_t place)
{
    for (std::uint32_t p = chain; p != k_nothing; p = leaf.places[p].next) {
        if (!are_close(grid, leaf.places[p].pos, leaf.places[place].pos)) continue;
        const std::uint32_t a = first_place(leaf.places, p);
        const std::uint32_t b = first_place(leaf.places, place);
        leaf.places[b].parent = a;
    }
}

// The place of a position, which is new when no corner before had it.
std::uint32_t place_of(const leaf_points& leaf, const pt_grid& grid, const float* pos,
                       std::uint32_t* place_count)
{
    const grid_cell cell = cell_of(grid, pos);
    std::uint32_t* const chain = chain_at(leaf, cell_hash(cell, k_here));
    for (std::uint32_t p = *chain; p != k_nothing; p = leaf.places[p].next)
        if (pts_same(leaf.places[p].pos, pos)) return p;
    const std::uint32_t place = (*place_count)++;
    leaf.places[place] = {
        {pos[0], pos[1], pos[2]}, k_nothing, place, 0, true, {pos[0], pos[1], pos[2]},
        {pos[0], pos[1], pos[2]}};
    for_each_close_cell(cell, [&](std::uint32_t hash) {
        join_close_places(leaf, grid, *chain_at(leaf, hash), place);
        return true;
    });
    leaf.places[place].next = *chain;
    *chain = place;
    return place;
}

template <class item_t> bool reserve_array(item_t** items, std::size_t count)
{
    heap_free(*items);
    *items = static_cast<item_t*>(heap_alloc(sizeof(item_t) * count));
    return *items != nullptr;
}

// Slots of the hash for that many corners, at most half of them used.
std::uint32_t heads_for(std::uint32_t entry_count)
{
    std::uint32_t heads = 64;
    while (heads / 6 < entry_count && heads < 0x80000000u)
        heads *= 2;
    return heads;
}

bool reserve(leaf_points* leaf, std::uint32_t entry_count)
{
    if (entry_count <= leaf->capacity) return true;
    const std::size_t count = entry_count < 64 ? 64 : entry_count + entry_count / 4;
    const std::size_t corners = 3 * count;
    const std::uint32_t heads = heads_for(static_cast<std::uint32_t>(count));
    leaf->capacity = 0;
    if (!reserve_array(&leaf->entries, count) || !reserve_array(&leaf->clusters, corners) ||
        !reserve_array(&leaf->members, corners) || !reserve_array(&leaf->places, corners) ||
        !reserve_array(&leaf->corner_at, corners) || !reserve_array(&leaf->heads, heads))
        return false;
    leaf->capacity = static_cast<std::uint32_t>(count);
    return true;
}

bool load_entries(const obj_list& list, leaf_points* leaf)
{
    leaf->entry_count = 0;
    bool finite = std::isfinite(merge_tol) && merge_tol >= 0.0f;
    for (const obj_h o : list) {
        const tr_h t = rec(o).tr;
        leaf->entries[leaf->entry_count++] = {t, rec(o).box};
        for (int i = 0; i < 3; ++i) {
            const float* pos = corner_pos(rec(t), i);
            finite =
                finite && std::isfinite(pos[0]) && std::isfinite(pos[1]) && std::isfinite(pos[2]);
        }
    }
    return finite;
}

std::uint32_t find_places(leaf_points* leaf)
{
    const pt_grid grid = grid_of_tol();
    leaf->head_count = heads_for(leaf->entry_count);
    std::memset(leaf->heads, 0xFF, sizeof *leaf->heads * leaf->head_count);
    std::uint32_t place_count = 0;
    for (std::uint32_t e = 0; e < leaf->entry_count; ++e) {
        const tr_rec& tr = rec(leaf->entries[e].tr);
        for (int i = 0; i < 3; ++i)
            leaf->corner_at[3 * e + static_cast<std::uint32_t>(i)] =
                place_of(*leaf, grid, corner_pos(tr, i), &place_count);
    }
    return place_count;
}

// No two places of a cluster are further apart than the ends of its box, and the difference of
// floats does not shrink when it is rounded.
void find_wide_clusters(leaf_points* leaf, std::uint32_t place_count)
{
    for (std::uint32_t p = 0; p < place_count; ++p) {
        const std::uint32_t f = first_place(leaf->places, p);
        if (f == p) continue;
        leaf_place& first = leaf->places[f];
        for (int i = 0; i < 3; ++i) {
            const float x = leaf->places[p].pos[i];
            if (x < first.low[i]) first.low[i] = x;
            if (x > first.high[i]) first.high[i] = x;
        }
    }
    for (std::uint32_t p = 0; p < place_count; ++p)
        leaf->places[p].all_meet = pts_equal(leaf->places[p].low, leaf->places[p].high);
}

// The members that an entry makes, with the first places of their clusters; returns how many.
int members_of(const leaf_points& leaf, std::uint32_t e, cluster_member* members,
               std::uint32_t* firsts)
{
    int count = 0;
    for (std::uint32_t i = 0; i < 3; ++i) {
        const std::uint32_t first = first_place(leaf.places, leaf.corner_at[3 * e + i]);
        int m = 0;
        while (m < count && firsts[m] != first)
            ++m;
        if (m == count) {
            members[count] = {e, 0};
            firsts[count++] = first;
        }
        members[m].corners |= 1u << i;
    }
    return count;
}

void count_members(leaf_points* leaf)
{
    for (std::uint32_t e = 0; e < leaf->entry_count; ++e) {
        cluster_member members[3];
        std::uint32_t firsts[3];
        const int count = members_of(*leaf, e, members, firsts);
        for (int m = 0; m < count; ++m) {
            leaf_place& place = leaf->places[firsts[m]];
            ++place.count;
            if (!pt_in_box(leaf->entries[e].box, place.pos)) place.all_meet = false;
        }
    }
}

void make_clusters(leaf_points* leaf, std::uint32_t place_count)
{
    std::uint32_t member_count = 0;
    leaf->cluster_count = 0;
    for (std::uint32_t p = 0; p < place_count; ++p) {
        leaf_place& place = leaf->places[p];
        const std::uint32_t count = place.count;
        if (count > 1)
            leaf->clusters[leaf->cluster_count++] = {member_count, count, place.all_meet};
        place.count = count > 1 ? member_count : k_nothing;
        member_count += count > 1 ? count : 0;
    }
}

void fill_members(leaf_points* leaf)
{
    for (std::uint32_t e = 0; e < leaf->entry_count; ++e) {
        cluster_member members[3];
        std::uint32_t firsts[3];
        const int count = members_of(*leaf, e, members, firsts);
        for (int m = 0; m < count; ++m) {
            leaf_place& place = leaf->places[firsts[m]];
            if (place.count != k_nothing) leaf->members[place.count++] = members[m];
        }
    }
}

} // namespace

bool leaf_points_load(const obj_list& list, leaf_points* leaf)
{
    if (!reserve(leaf, list.count)) return false;
    leaf->clustered = load_entries(list, leaf);
    if (!leaf->clustered) return true;
    const std::uint32_t place_count = find_places(leaf);
    find_wide_clusters(leaf, place_count);
    count_members(leaf);
    make_clusters(leaf, place_count);
    fill_members(leaf);
    return true;
}

void leaf_points_free(leaf_points* leaf)
{
    heap_free(leaf->entries);
    heap_free(leaf->clusters);
    heap_free(leaf->members);
    heap_free(leaf->places);
    heap_free(leaf->corner_at);
    heap_free(leaf->heads);
    *leaf = {};
}

} // namespace velmora
