#include "topo/merge_left.h"

#include "mesh/cell_tree.h"
#include "mesh/checked.h"
#include "mesh/pt_grid.h"
#include "mesh/pt_hash.h"
#include "mesh/vec.h"

#include <cmath>
#include <cstring>

namespace velmora {

namespace {

constexpr std::uint32_t k_nothing = 0xFFFFFFFFu;

// Looks at entries for each object, before all objects are looked at again. In a clean model the
// whole merge takes less.
constexpr std::uint64_t k_looks_each = bound_or(8u, 1u);

// A position where vertices of corners that are left are.
struct left_place {
    vtx_h vtx;          // one that is there
    bool unsettled;     // another one is there too, or close
    std::uint32_t next; // in the chain of its cell
};

// What is found out in one go. All owned.
struct left_search {
    left_place* places;
    std::uint32_t place_count;
    std::uint32_t* place_of; // by vertex: its place plus 1, 0 not met yet
    std::uint32_t* heads;    // hash of the positions, then of the cells
    std::uint32_t mask;
};

bool search_open(std::uint32_t most_vertices, left_search* s)
{
    *s = {};
    const std::uint32_t heads = table_size_for(2 * most_vertices + 64);
    s->places = heap_array<left_place>(most_vertices);
    s->place_of = heap_array<std::uint32_t>(vtx_pool.used);
    s->heads = heap_array<std::uint32_t>(heads);
    s->mask = heads - 1;
    if (!s->places || !s->place_of || !s->heads) return false;
    std::memset(s->place_of, 0, sizeof(std::uint32_t) * vtx_pool.used);
    std::memset(s->heads, 0xFF, sizeof(std::uint32_t) * heads);
    return true;
}

void search_close(left_search* s)
{
    heap_free(s->places);
    heap_free(s->place_of);
    heap_free(s->heads);
}

const float* pos_of(const left_search& s, std::uint32_t place)
{
    return rec(s.places[place].vtx).pos;
}

void add_vertex(vtx_h v, left_search* s)
{
    if (s->place_of[v.i] != 0) return;
    std::uint32_t at = pt_hash(rec(v).pos) & s->mask;
    while (s->heads[at] != k_nothing && !pts_same(pos_of(*s, s->heads[at]), rec(v).pos))
        at = (at + 1) & s->mask;
    if (s->heads[at] == k_nothing) {
        s->heads[at] = s->place_count;
        s->places[s->place_count++] = {v, false, k_nothing};
    } else {
        s->places[s->heads[at]].unsettled = true;
    }
    s->place_of[v.i] = s->heads[at] + 1;
}

template <class corner_fn> void for_each_corner_left(const merge_left& left, const corner_fn& visit)
{
    for (std::uint32_t o = 1; o < obj_pool.used; ++o)
        for (int i = 0; i < 3; ++i)
            if (left.corners[o] >> i & 1) visit(o, i, rec(rec(obj_h{o}).tr).vtx[i]);
}

// The first place found close to `p` proves both unsettled; in a cell as wide as the tolerance
// hardly any other is not close, so the search is short.
void look_around(const pt_grid& grid, std::uint32_t p, left_search* s)
{
    if (s->places[p].unsettled) return;
    for_each_cell_around(cell_of(grid, pos_of(*s, p)), [&](std::uint32_t hash) {
        for (std::uint32_t q = s->heads[hash & s->mask]; q != k_nothing; q = s->places[q].next) {
            if (s->places[p].unsettled) return;
            if (q != p && are_close(grid, pos_of(*s, p), pos_of(*s, q)))
                s->places[p].unsettled = s->places[q].unsettled = true;
        }
    });
}

void find_unsettled(left_search* s)
{
    const pt_grid grid = fine_grid_of_tol();
    const int here[3] = {0, 0, 0};
    std::memset(s->heads, 0xFF, sizeof(std::uint32_t) * (std::size_t{s->mask} + 1));
    for (std::uint32_t p = 0; p < s->place_count; ++p) {
        std::uint32_t& head = s->heads[cell_hash(cell_of(grid, pos_of(*s, p)), here) & s->mask];
        s->places[p].next = head;
        head = p;
    }
    for (std::uint32_t p = 0; p < s->place_count; ++p)
        look_around(grid, p, s);
}

void drop_settled(const left_search& s, merge_left* left)
{
    left->obj_count = 0;
    for_each_corner_left(*left, [&](std::uint32_t o, int i, vtx_h v) {
        if (!s.places[s.place_of[v.i] - 1].unsettled)
            left->corners[o] = static_cast<std::uint8_t>(left->corners[o] & ~(1u << i));
    });
    for (std::uint32_t o = 1; o < obj_pool.used; ++o)
        left->obj_count += left->corners[o] != 0;
}

// What is no number, or endless, is close to everything.
bool all_finite(const left_search& s)
{
    bool finite = std::isfinite(merge_tol) && merge_tol >= 0.0f;
    for (std::uint32_t p = 0; p < s.place_count; ++p)
        for (int i = 0; i < 3; ++i)
            finite &= std::isfinite(pos_of(s, p)[i]);
    return finite;
}

// False when that can't be found out.
bool look_again(merge_left* left)
{
    const std::uint64_t corners = std::uint64_t{3} * left->obj_count;
    const std::uint32_t vertices = vtx_pool.used;
    left_search s;
    bool done =
        search_open(corners < vertices ? static_cast<std::uint32_t>(corners) : vertices, &s);
    if (done) {
        for_each_corner_left(*left, [&](std::uint32_t, int, vtx_h v) { add_vertex(v, &s); });
        done = all_finite(s);
    }
    if (done) {
        find_unsettled(&s);
        drop_settled(s, left);
    }
    search_close(&s);
    return done;
}

// By object, bit i for corner i: all of them, or with weld_some those of marked triangles.
bool choose_all(merge_left* left, mesh_ctx* ctx)
{
    const bool some = ctx->topo && ctx->topo->weld == weld_some;
    left->corners = heap_array<std::uint8_t>(obj_pool.used);
    if (!left->corners) return false;
    std::memset(left->corners, 0, obj_pool.used);
    return for_each_obj_once(ctx, [&](obj_h o, const cell_obj& obj) {
        tr_rec& tr = rec(obj.tr);
        const bool chosen = !some || (tr.flags & tr_may_merge);
        if (some) tr.flags &= ~tr_may_merge; // else it is a model file's own
        left->corners[o.i] = chosen ? 7 : 0;
        left->obj_count += chosen;
        return true;
    });
}

void be_patient(merge_left* left)
{
    left->patience = k_looks_each * left->obj_count + obj_pool.used;
}

} // namespace

bool merge_left_open(merge_left* left, mesh_ctx* ctx)
{
    *left = {};
    if (!choose_all(left, ctx)) return false;
    be_patient(left);
    return true;
}

void merge_left_close(merge_left* left)
{
    heap_free(left->corners);
    *left = {};
}

void merge_left_pace(merge_left* left, std::uint32_t entries)
{
    if (entries <= left->patience) {
        left->patience -= entries;
    } else if (look_again(left)) {
        be_patient(left);
    } else {
        left->patience = ~std::uint64_t{0};
    }
}

} // namespace velmora
