#include "topo/leaf_points.h"

#include "mesh/box.h"
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
    std::uint32_t count; ///< of a first place: members of the cluster, then where the next one goes
    bool alone;          ///< no other place in the cluster, and all boxes contain it
};

namespace {

// Cells are this many tolerances wide: few corners are near a face, and few places share a cell.
constexpr double k_cell_tols = 16.0;

// The float difference of two points may round down to the tolerance.
constexpr double k_reach_tols = 1.0 + 1e-6;

// From here on neighbouring floats are further apart than the tolerance.
constexpr double k_far_cell = 1099511627776.0;

// Covers the rounding of cell numbers below that bound.
constexpr double k_near_face = 1.0 / k_cell_tols + 1.0 / 1024.0;

struct point_grid {
    double reach;    // points further apart than this on some axis are not close
    double per_cell; // cells per unit of length; 0 without a tolerance
};

point_grid grid_of_tol()
{
    const double reach = static_cast<double>(merge_tol) * k_reach_tols;
    return {reach, reach > 0.0 ? 1.0 / (k_cell_tols * reach) : 0.0};
}

struct grid_cell {
    std::int64_t at[3];
    int near[3]; // -1 or 1: also look in the next cell on this side
};

std::int64_t bits_of(float x)
{
    std::uint32_t bits;
    if (x == 0.0f) return 0;
    std::memcpy(&bits, &x, sizeof bits);
    return static_cast<std::int64_t>(bits) + (std::int64_t{1} << 50);
}

grid_cell cell_of(const point_grid& grid, const float* pos)
{
    grid_cell cell = {};
    for (int i = 0; i < 3; ++i) {
        const double s = static_cast<double>(pos[i]) * grid.per_cell;
        if (grid.per_cell == 0.0 || !(std::fabs(s) < k_far_cell)) {
            cell.at[i] = bits_of(pos[i]);
            continue;
        }
        const double floor = std::floor(s);
        cell.at[i] = static_cast<std::int64_t>(floor);
        if (s - floor < k_near_face) cell.near[i] = -1;
        if (s - floor > 1.0 - k_near_face) cell.near[i] = 1;
    }
    return cell;
}

std::uint64_t mix(std::uint64_t h, std::int64_t with)
{
    h = (h ^ static_cast<std::uint64_t>(with)) * 0x9E3779B97F4A7C15ull;
    return h ^ h >> 29;
}

std::uint32_t* chain_of(const leaf_points& leaf, const grid_cell& cell, int dx, int dy, int dz)
{
    const std::uint64_t h = mix(mix(mix(0, cell.at[0] + dx), cell.at[1] + dy), cell.at[2] + dz);
    return &leaf.heads[(h >> 20) & (leaf.head_count - 1)];
}

std::uint32_t first_place(leaf_place* places, std::uint32_t p)
{
    while (places[p].parent != p)
        p = places[p].parent = places[places[p].parent].parent;
    return p;
}

bool are_close(const point_grid& grid, const float* a, const float* b)
{
    for (int i = 0; i < 3; ++i)
        if (std::fabs(static_cast<double>(a[i]) - static_cast<double>(b[i])) > grid.reach)
            return false;
    return true;
}

void join_close_places(const leaf_points& leaf, const point_grid& grid, std::uint32_t chain,
                       std::uint32_t place)
{
    for (std::uint32_t p = chain; p != k_nothing; p = leaf.places[p].next) {
        if (!are_close(grid, leaf.places[p].pos, leaf.places[place].pos)) continue;
        const std::uint32_t a = first_place(leaf.places, p);
        const std::uint32_t b = first_place(leaf.places, place);
        leaf.places[b].parent = a;
        if (a != b) leaf.places[a].alone = false;
    }
}

void join_close_cells(const leaf_points& leaf, const point_grid& grid, const grid_cell& cell,
                      std::uint32_t place)
{
    for (int corner = 0; corner < 8; ++corner) {
        int d[3];
        bool looks = true;
        for (int i = 0; i < 3; ++i) {
            d[i] = corner >> i & 1 ? cell.near[i] : 0;
            looks = looks && (d[i] != 0 || !(corner >> i & 1));
        }
        if (looks) join_close_places(leaf, grid, *chain_of(leaf, cell, d[0], d[1], d[2]), place);
    }
}

// The place of a position, which is new when no corner before had it.
std::uint32_t place_of(const leaf_points& leaf, const point_grid& grid, const float* pos,
                       std::uint32_t* place_count)
{
    const grid_cell cell = cell_of(grid, pos);
    std::uint32_t* const chain = chain_of(leaf, cell, 0, 0, 0);
    for (std::uint32_t p = *chain; p != k_nothing; p = leaf.places[p].next)
        if (pts_same(leaf.places[p].pos, pos)) return p;
    const std::uint32_t place = (*place_count)++;
    leaf.places[place] = {{pos[0], pos[1], pos[2]}, k_nothing, place, 0, true};
    join_close_cells(leaf, grid, cell, place);
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
    const point_grid grid = grid_of_tol();
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
            if (!pt_in_box(leaf->entries[e].box, place.pos)) place.alone = false;
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
        if (count > 1) leaf->clusters[leaf->cluster_count++] = {member_count, count, place.alone};
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
