#include "topo/merge_rows.h"

#include "mesh/box.h"
#include "mesh/pt_grid.h"
#include "mesh/vec.h"
#include "topo/merge_pair.h"

#include <bit>
#include <cstring>

namespace velmora {

constexpr std::uint32_t k_nothing = 0xFFFFFFFFu;

/// A vertex that some member of the cluster has, or has had. It is in the grid while members yet to
/// come have it.
struct near_vertex {
    float pos[3]; ///< kept here, as the record may die
    vtx_h vtx;
    std::uint32_t first_use; ///< of members yet to come
    std::uint32_t head;      ///< of its chain
    std::uint32_t prev;      ///< in its chain
    std::uint32_t next;
    std::uint32_t row; ///< the last row that its users wait for
};

/// The vertex of one corner of a member.
struct corner_use {
    std::uint32_t vertex;
    std::uint32_t prev; ///< among the uses of the vertex
    std::uint32_t next;
};

namespace {

// One cluster at work.
class row_merge {
    const leaf_points& leaf;
    const cluster_member* members;
    std::uint32_t count;
    merge_rows* w;
    pt_grid grid = fine_grid_of_tol();
    std::uint32_t row = 0; // number of the member whose row it is, plus 1
    std::uint32_t now = 0; // the member that the row has got to
    std::int64_t merged = 0;

    bool has_corner(std::uint32_t m, std::uint32_t i) const
    {
        return (members[m].corners >> i & 1) != 0;
    }
    vtx_h* slot_of(std::uint32_t m, std::uint32_t i) const
    {
        return &rec(leaf.entries[members[m].entry].tr).vtx[i];
    }

    // ---- the vertices of the cluster, found by their handles

    std::uint32_t number_of(vtx_h v)
    {
        std::uint32_t at = v.i * 0x9E3779B1u & (w->head_count - 1);
        while (w->heads[at] != k_nothing && w->vertices[w->heads[at]].vtx != v)
            at = (at + 1) & (w->head_count - 1);
        if (w->heads[at] == k_nothing) {
            near_vertex& vertex = w->vertices[w->vtx_count];
            vertex = {{}, v, k_nothing, 0, k_nothing, k_nothing, 0};
            vec_copy(rec(v).pos, vertex.pos);
            w->heads[at] = w->vtx_count++;
        }
        return w->heads[at];
    }

    void number_vertices()
    {
        w->vtx_count = 0;
        std::memset(w->heads, 0xFF, sizeof(std::uint32_t) * w->head_count);
        for (std::uint32_t m = 0; m < count; ++m)
            for (std::uint32_t i = 0; i < 3; ++i)
                if (has_corner(m, i)) w->uses[3 * m + i].vertex = number_of(*slot_of(m, i));
    }

    // ---- the grid

    void enter_grid(std::uint32_t v)
    {
        near_vertex& vertex = w->vertices[v];
        std::uint32_t& head = w->heads[vertex.head];
        vertex.prev = k_nothing;
        vertex.next = head;
        if (head != k_nothing) w->vertices[head].prev = v;
        head = v;
        ++w->live;
    }

    void leave_grid(std::uint32_t v)
    {
        const near_vertex& vertex = w->vertices[v];
        if (vertex.next != k_nothing) w->vertices[vertex.next].prev = vertex.prev;
        (vertex.prev != k_nothing ? w->vertices[vertex.prev].next : w->heads[vertex.head]) =
            vertex.next;
        --w->live;
    }

    void add_use(std::uint32_t use, std::uint32_t v)
    {
        near_vertex& vertex = w->vertices[v];
        if (vertex.first_use == k_nothing) enter_grid(v);
        w->uses[use] = {v, k_nothing, vertex.first_use};
        if (vertex.first_use != k_nothing) w->uses[vertex.first_use].prev = use;
        vertex.first_use = use;
    }

    void drop_use(std::uint32_t at)
    {
        const corner_use& use = w->uses[at];
        near_vertex& vertex = w->vertices[use.vertex];
        if (use.next != k_nothing) w->uses[use.next].prev = use.prev;
        (use.prev != k_nothing ? w->uses[use.prev].next : vertex.first_use) = use.next;
        if (vertex.first_use == k_nothing) leave_grid(use.vertex);
    }

    void fill_grid()
    {
        const int here[3] = {0, 0, 0};
        w->live = 0;
        std::memset(w->heads, 0xFF, sizeof(std::uint32_t) * w->head_count);
        for (std::uint32_t v = 0; v < w->vtx_count; ++v)
            w->vertices[v].head =
                cell_hash(cell_of(grid, w->vertices[v].pos), here) & (w->head_count - 1);
        for (std::uint32_t m = 0; m < count; ++m)
            for (std::uint32_t i = 0; i < 3; ++i)
                if (has_corner(m, i)) add_use(3 * m + i, w->uses[3 * m + i].vertex);
    }

    // ---- a row

    void await_users(std::uint32_t v)
    {
        near_vertex& vertex = w->vertices[v];
        if (vertex.row == row) return;
        vertex.row = row;
        for (std::uint32_t u = vertex.first_use; u != k_nothing; u = w->uses[u].next)
            if (u / 3 > now) w->waiting[u / 3 / 64] |= std::uint64_t{1} << (u / 3 % 64);
    }

    void await_users_in(std::uint32_t hash, std::uint32_t v)
    {
        for (std::uint32_t n = w->heads[hash & (w->head_count - 1)]; n != k_nothing;
             n = w->vertices[n].next)
            if (n != v && are_close(grid, w->vertices[n].pos, w->vertices[v].pos)) await_users(n);
    }

    // All that have another vertex close to `v` are to be visited.
    void await_close(std::uint32_t v)
    {
        for_each_cell_around(cell_of(grid, w->vertices[v].pos),
                             [&](std::uint32_t hash) { await_users_in(hash, v); });
    }

    void merge_corners(std::uint32_t a, std::uint32_t i, std::uint32_t b, std::uint32_t j)
    {
        const std::uint32_t p = w->uses[3 * a + i].vertex;
        const std::uint32_t q = w->uses[3 * b + j].vertex;
        if (p == q || !pts_equal(w->vertices[p].pos, w->vertices[q].pos)) return;
        ++merged;
        if (second_stays(w->vertices[p].vtx, w->vertices[q].vtx)) {
            hand_over(slot_of(a, i), w->vertices[q].vtx);
            w->uses[3 * a + i].vertex = q;
            await_close(q);
        } else {
            hand_over(slot_of(b, j), w->vertices[p].vtx);
            drop_use(3 * b + j);
            add_use(3 * b + j, p);
        }
    }

    void meet(std::uint32_t a, std::uint32_t b)
    {
        if (!box_overlap(leaf.entries[members[a].entry].box, leaf.entries[members[b].entry].box))
            return;
        for (std::uint32_t i = 0; i < 3; ++i)
            for (std::uint32_t j = 0; j < 3; ++j)
                if (has_corner(a, i) && has_corner(b, j)) merge_corners(a, i, b, j);
    }

    // The members that wait, in order; meeting one may make later ones wait.
    void visit_waiting(std::uint32_t a)
    {
        for (std::uint32_t word = a / 64; word < (count + 63) / 64; ++word)
            while (w->waiting[word] != 0) {
                const auto bit = static_cast<std::uint32_t>(std::countr_zero(w->waiting[word]));
                w->waiting[word] &= w->waiting[word] - 1;
                now = 64 * word + bit;
                meet(a, now);
            }
    }

    void merge_row(std::uint32_t a)
    {
        row = a + 1;
        now = a;
        for (std::uint32_t i = 0; i < 3; ++i)
            if (has_corner(a, i)) drop_use(3 * a + i);
        for (std::uint32_t i = 0; i < 3; ++i)
            if (has_corner(a, i)) await_close(w->uses[3 * a + i].vertex);
        visit_waiting(a);
    }

  public:
    row_merge(const leaf_points& of_leaf, const point_cluster& cluster, merge_rows* rows)
        : leaf(of_leaf), members(of_leaf.members + cluster.first), count(cluster.count), w(rows)
    {
    }

    std::int64_t merge()
    {
        w->head_count = std::bit_ceil(6 * count);
        std::memset(w->waiting, 0, sizeof(std::uint64_t) * (count / 64 + 1));
        number_vertices();
        fill_grid();
        for (std::uint32_t a = 0; a < count && w->live > 1; ++a)
            merge_row(a);
        return merged;
    }
};

bool reserve(merge_rows* rows, std::uint32_t members)
{
    if (members <= rows->capacity) return true;
    const std::size_t count = members + std::size_t{members} / 4;
    rows->capacity = 0;
    if (!heap_renew(&rows->vertices, 3 * count) || !heap_renew(&rows->uses, 3 * count) ||
        !heap_renew(&rows->heads, std::bit_ceil(6 * count)) ||
        !heap_renew(&rows->waiting, count / 64 + 1))
        return false;
    rows->capacity = static_cast<std::uint32_t>(count);
    return true;
}

} // namespace

std::int64_t merge_by_rows(const leaf_points& leaf, const point_cluster& cluster, merge_rows* rows)
{
    if (!reserve(rows, cluster.count)) return -1;
    return row_merge(leaf, cluster, rows).merge();
}

void merge_rows_free(merge_rows* rows)
{
    heap_free(rows->vertices);
    heap_free(rows->uses);
    heap_free(rows->heads);
    heap_free(rows->waiting);
    *rows = {};
}

} // namespace velmora
