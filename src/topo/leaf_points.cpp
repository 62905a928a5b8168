#include "topo/leaf_points.h"

#include "mesh/box.h"
#include "mesh/pt_grid.h"
#include "mesh/pt_hash.h"
#include "mesh/vec.h"

#include <algorithm>
#include <cmath>

namespace velmora {

constexpr std::uint32_t k_nothing = 0xFFFFFFFFu;
constexpr std::uint32_t k_few_places = 300; ///< up to this many may be compared with each other

/// A place where corners are.
struct leaf_place {
    vtx_h vtx;            ///< a vertex that is there
    bool several;         ///< another one is, too
    std::uint32_t next;   ///< in the same chain of the hash
    std::uint32_t parent; ///< towards the cluster's first place, which is its own
    // Of a first place:
    std::uint32_t vertices; ///< of the cluster, 2 for more; a single one has nothing to merge with
    std::uint32_t count;    ///< members of the cluster, then where the next one goes
    bool all_meet;          ///< as in point_cluster
    aabb box;               ///< of all places in a cluster with several vertices
};

namespace {

std::uint32_t* chain_at(const leaf_points& leaf, std::uint32_t hash)
{
    return &leaf.heads[hash & (leaf.head_count - 1)];
}

void clear_heads(leaf_points* leaf)
{
    std::fill_n(leaf->heads, leaf->head_count, k_nothing);
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
    if (!heap_renew(&leaf->entries, count) || !heap_renew(&leaf->clusters, corners) ||
        !heap_renew(&leaf->members, corners) || !heap_renew(&leaf->places, corners) ||
        !heap_renew(&leaf->corner_at, corners) || !heap_renew(&leaf->heads, heads))
        return false;
    leaf->capacity = static_cast<std::uint32_t>(count);
    return true;
}

void load_entries(const obj_list& list, leaf_points* leaf)
{
    leaf->entry_count = 0;
    for (const obj_h o : list)
        leaf->entries[leaf->entry_count++] = {rec(o).tr, rec(o).box};
}

// ---- places

const float* pos_of(const leaf_points& leaf, std::uint32_t place)
{
    return rec(leaf.places[place].vtx).pos;
}

// The place of a vertex, which is new when no corner before was there.
std::uint32_t place_of(const leaf_points& leaf, vtx_h v, std::uint32_t* place_count)
{
    const float* pos = rec(v).pos;
    std::uint32_t at = pt_hash(pos) & (leaf.head_count - 1);
    for (; leaf.heads[at] != k_nothing; at = (at + 1) & (leaf.head_count - 1)) {
        leaf_place& place = leaf.places[leaf.heads[at]];
        if (place.vtx == v) return leaf.heads[at];
        if (!pts_same(rec(place.vtx).pos, pos)) continue;
        place.several = true;
        return leaf.heads[at];
    }
    const std::uint32_t number = (*place_count)++;
    leaf.places[number] = {v, false, k_nothing, number, 0, 0, true, k_no_box};
    return leaf.heads[at] = number;
}

std::uint32_t find_places(const obj_list& list, const std::uint8_t* corners, leaf_points* leaf)
{
    leaf->head_count = heads_for(leaf->entry_count);
    clear_heads(leaf);
    std::uint32_t place_count = 0;
    for (std::uint32_t e = 0; e < leaf->entry_count; ++e) {
        const std::uint32_t looks_at = corners[list_at(list, e).i];
        for (std::uint32_t i = 0; i < 3; ++i)
            leaf->corner_at[3 * e + i] =
                looks_at >> i & 1 ? place_of(*leaf, rec(leaf->entries[e].tr).vtx[i], &place_count)
                                  : k_nothing;
    }
    return place_count;
}

bool all_finite(const leaf_points& leaf, std::uint32_t place_count)
{
    bool finite = std::isfinite(merge_tol) && merge_tol >= 0.0f;
    for (std::uint32_t p = 0; p < place_count; ++p)
        for (int i = 0; i < 3; ++i)
            finite &= std::isfinite(pos_of(leaf, p)[i]);
    return finite;
}

// ---- clusters

std::uint32_t first_of(leaf_place* places, std::uint32_t p)
{
    while (places[p].parent != p)
        p = places[p].parent = places[places[p].parent].parent;
    return p;
}

void join(leaf_place* places, std::uint32_t a, std::uint32_t b)
{
    places[first_of(places, b)].parent = first_of(places, a);
}

// Joins a place with all close ones of a chain.
void join_close(const leaf_points& leaf, const pt_grid& grid, std::uint32_t hash, std::uint32_t p)
{
    for (std::uint32_t n = *chain_at(leaf, hash); n != k_nothing; n = leaf.places[n].next)
        if (are_close(grid, pos_of(leaf, n), pos_of(leaf, p))) join(leaf.places, n, p);
}

// The same where those of the chain are one cluster.
void join_cell(const leaf_points& leaf, const pt_grid& grid, std::uint32_t hash, std::uint32_t p)
{
    std::uint32_t n = *chain_at(leaf, hash);
    while (n != k_nothing && !are_close(grid, pos_of(leaf, n), pos_of(leaf, p)))
        n = leaf.places[n].next;
    if (n != k_nothing) join(leaf.places, n, p);
}

void add_to_chain(const leaf_points& leaf, const grid_cell& cell, std::uint32_t p)
{
    const int here[3] = {0, 0, 0};
    std::uint32_t& chain = *chain_at(leaf, cell_hash(cell, here));
    leaf.places[p].next = chain;
    chain = p;
}

void find_few_clusters(std::uint32_t place_count, const leaf_points& leaf)
{
    const pt_grid grid = grid_of_tol();
    for (std::uint32_t p = 0; p < place_count; ++p) {
        const grid_cell cell = cell_of(grid, pos_of(leaf, p));
        for_each_close_cell(cell, [&](std::uint32_t hash) {
            join_close(leaf, grid, hash, p);
            return true;
        });
        add_to_chain(leaf, cell, p);
    }
}

// Looks at more cells, but takes no quadratic time where all places lie close together: those in
// one cell of the fine grid are a cluster from the start, even where they are not quite close, and
// so the first close one in another cell joins all of that.
void find_many_clusters(std::uint32_t place_count, const leaf_points& leaf)
{
    const pt_grid grid = fine_grid_of_tol();
    const int here[3] = {0, 0, 0};
    for (std::uint32_t p = 0; p < place_count; ++p) {
        const grid_cell cell = cell_of(grid, pos_of(leaf, p));
        const std::uint32_t mate = *chain_at(leaf, cell_hash(cell, here));
        if (mate != k_nothing) join(leaf.places, mate, p);
        for_each_cell_around(cell, [&](std::uint32_t hash) { join_cell(leaf, grid, hash, p); });
        add_to_chain(leaf, cell, p);
    }
}

void find_clusters(std::uint32_t place_count, leaf_points* leaf)
{
    clear_heads(leaf);
    if (place_count <= k_few_places) {
        find_few_clusters(place_count, *leaf);
    } else {
        find_many_clusters(place_count, *leaf);
    }
}

// Whether any cluster has more than one vertex.
bool count_vertices(std::uint32_t place_count, leaf_points* leaf)
{
    bool any = false;
    for (std::uint32_t p = 0; p < place_count; ++p) {
        leaf_place& first = leaf->places[first_of(leaf->places, p)];
        const std::uint32_t vertices = first.vertices + (leaf->places[p].several ? 2 : 1);
        first.vertices = vertices < 2 ? vertices : 2;
        any |= vertices > 1;
    }
    return any;
}

// No two places of a cluster are further apart than the ends of its box, and the difference of
// floats does not shrink when it is rounded.
void find_wide_clusters(leaf_points* leaf, std::uint32_t place_count)
{
    for (std::uint32_t p = 0; p < place_count; ++p) {
        leaf_place& first = leaf->places[first_of(leaf->places, p)];
        if (first.vertices > 1) box_add(&first.box, pos_of(*leaf, p));
    }
    for (std::uint32_t p = 0; p < place_count; ++p)
        leaf->places[p].all_meet = pts_equal(leaf->places[p].box.min, leaf->places[p].box.max);
}

// ---- members

// The members that an entry makes, with the first places of their clusters, where these have more
// than one vertex; returns how many.
int members_of(const leaf_points& leaf, std::uint32_t e, cluster_member* members,
               std::uint32_t* firsts)
{
    int count = 0;
    for (std::uint32_t i = 0; i < 3; ++i) {
        const std::uint32_t at = leaf.corner_at[3 * e + i];
        if (at == k_nothing) continue;
        const std::uint32_t first = first_of(leaf.places, at);
        if (leaf.places[first].vertices < 2) continue;
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

bool has_in_box(const leaf_entry& entry, const leaf_place& first)
{
    return pt_in_box(entry.box, rec(first.vtx).pos);
}

void count_members(leaf_points* leaf)
{
    for (std::uint32_t e = 0; e < leaf->entry_count; ++e) {
        cluster_member members[3];
        std::uint32_t firsts[3];
        const int count = members_of(*leaf, e, members, firsts);
        for (int m = 0; m < count; ++m) {
            leaf_place& first = leaf->places[firsts[m]];
            ++first.count;
            if (!has_in_box(leaf->entries[e], first)) first.all_meet = false;
        }
    }
}

void make_clusters(leaf_points* leaf, std::uint32_t place_count)
{
    std::uint32_t member_count = 0;
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
            leaf_place& first = leaf->places[firsts[m]];
            if (first.count != k_nothing) leaf->members[first.count++] = members[m];
        }
    }
}

} // namespace

bool leaf_points_load(const obj_list& list, const std::uint8_t* corners, leaf_points* leaf)
{
    if (!reserve(leaf, list.count)) return false;
    load_entries(list, leaf);
    leaf->cluster_count = 0;
    const std::uint32_t place_count = find_places(list, corners, leaf);
    leaf->clustered = all_finite(*leaf, place_count);
    if (!leaf->clustered) return true;
    find_clusters(place_count, leaf);
    if (!count_vertices(place_count, leaf)) return true;
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
