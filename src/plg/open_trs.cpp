#include "plg/open_trs.h"

#include "mesh/box.h"
#include "mesh/cell_tree.h"
#include "mesh/folded_cells.h"
#include "mesh/measure.h"
#include "mesh/memory.h"
#include "mesh/pt_hash.h"
#include "mesh/vec.h"
#include "plg/tr_edges.h"

#include <cstring>

namespace velmora {

namespace {

constexpr std::uint32_t k_first_capacity = 256;

// What the walk knows of an object. A flat model stands in dozens of leaves with every triangle, so
// the answer for most entries of a list must cost no look at a record.
enum obj_state : std::uint8_t {
    obj_unseen = 0,
    obj_seen = 1 << 3, // and bit k: corner k is open, and no leaf near to it was met yet
    obj_lone = 1 << 4,
};
constexpr std::uint8_t k_corners_left = 7;

struct collect_job {
    open_trs* open;
    std::uint8_t* states; // by the object's place in the pool
    mesh_ctx* ctx;
};

template <class item_t>
bool append(item_t** items, std::uint32_t* count, std::uint32_t* capacity, const item_t& item)
{
    if (*count == *capacity) {
        const std::uint32_t more = *capacity ? *capacity * 2 : k_first_capacity;
        void* grown = heap_realloc(*items, sizeof(item_t) * more);
        if (!grown) return false;
        *items = static_cast<item_t*>(grown);
        *capacity = more;
    }
    (*items)[(*count)++] = item;
    return true;
}

bool add_obj(open_trs* open, obj_h o)
{
    return append(&open->objs, &open->obj_count, &open->obj_capacity, o);
}

bool add_corner(open_trs* open, obj_h o, const float* p, bool is_near)
{
    const open_corner corner = {{p[0], p[1], p[2]}, o, is_near ? 1u : 0u, 0};
    return append(&open->corners, &open->corner_count, &open->corner_capacity, corner);
}

std::uint8_t first_state(const tr_rec& tr)
{
    if (tr_nbr_count(tr) == 0) return obj_seen | obj_lone;
    unsigned state = obj_seen;
    for (int k = 0; k < 3; ++k)
        if (corner_one_free(tr, k)) state |= 1u << k;
    return static_cast<std::uint8_t>(state);
}

// One that stands in two leaves counts twice; leaves that stay folded do not count.
bool add_lone(obj_h o, mesh_ctx* ctx)
{
    ++ctx->topo->lone_count;
    if (rec(o).stamp == ctx->visit_stamp) return true;
    rec(o).stamp = ctx->visit_stamp;
    return list_push(&ctx->topo->lone_list, o);
}

bool add_corners_near(const aabb& leaf_box, obj_h o, std::uint8_t* state, open_trs* open)
{
    const tr_rec& tr = rec(rec(o).tr);
    for (int k = 0; k < 3; ++k) {
        const unsigned bit = 1u << k;
        const float* p = corner_pos(tr, k);
        if (!(*state & bit) || !box_overlap(leaf_box, near_box(p))) continue;
        if (!add_corner(open, o, p, true)) return false;
        *state = static_cast<std::uint8_t>(*state & ~bit);
    }
    return true;
}

// Lone ones are not looked for: they are known from the first leaf.
bool has_something_new(const cell_node& folded, const collect_job& job)
{
    return any_folded(folded, [&](obj_h o) {
        const std::uint8_t state = job.states[o.i];
        if (state == obj_unseen) return true;
        const tr_rec& tr = rec(rec(o).tr);
        for (int k = 0; k < 3; ++k)
            if ((state & (1u << k)) && box_overlap(folded.box, near_box(corner_pos(tr, k))))
                return true;
        return false;
    });
}

bool collect_leaf(const cell_node& leaf, collect_job* job)
{
    for (const obj_h o : leaf.list) {
        std::uint8_t* state = &job->states[o.i];
        if (*state == obj_unseen) {
            *state = first_state(rec(rec(o).tr));
            if ((*state & k_corners_left) && !add_obj(job->open, o)) return false;
        }
        if ((*state & obj_lone) && !add_lone(o, job->ctx)) return false;
        if ((*state & k_corners_left) && !add_corners_near(leaf.box, o, state, job->open))
            return false;
    }
    return true;
}

// Corners that lie outside of the box by which their triangle stands in the tree.
bool add_far_corners(collect_job* job)
{
    for (std::uint32_t i = 0; i < job->open->obj_count; ++i) {
        const obj_h o = job->open->objs[i];
        for (int k = 0; k < 3; ++k) {
            if (!(job->states[o.i] & (1u << k))) continue;
            if (!add_corner(job->open, o, corner_pos(rec(rec(o).tr), k), false)) return false;
        }
    }
    return true;
}

// Filled from the back, so that each chain runs in the order of the walk. A point with a NaN is
// never found and would only lengthen a chain.
bool index_corners(open_trs* open)
{
    const std::uint32_t size = table_size_for(open->corner_count);
    void* heads = heap_alloc(sizeof(std::uint32_t) * size);
    if (!heads) return false;
    open->heads = static_cast<std::uint32_t*>(std::memset(heads, 0, sizeof(std::uint32_t) * size));
    open->mask = size - 1;
    for (std::uint32_t i = open->corner_count; i-- > 0;) {
        open_corner& corner = open->corners[i];
        if (vec_has_nan(corner.pnt)) continue;
        std::uint32_t* head = &open->heads[pt_hash(corner.pnt) & open->mask];
        corner.next = *head;
        *head = i + 1;
    }
    return true;
}

// The open corners at `p` of objects that have no stamp, in order; `found` returns true to end the
// search with that corner.
template <class found_fn>
const open_corner* find_corner(open_trs* open, const float* p, std::uint32_t stamp,
                               const found_fn& found)
{
    std::uint32_t* link = &open->heads[pt_hash(p) & open->mask];
    while (*link) {
        open_corner& corner = open->corners[*link - 1];
        if (rec(corner.obj).stamp == stamp) {
            *link = corner.next;
            continue;
        }
        if (pts_same(corner.pnt, p) && found(corner)) return &corner;
        link = &corner.next;
    }
    return nullptr;
}

bool has_open_corner_at(obj_h o, const float* p)
{
    const tr_rec& tr = rec(rec(o).tr);
    for (int k = 0; k < 3; ++k)
        if (pts_same(corner_pos(tr, k), p) && corner_one_free(tr, k)) return true;
    return false;
}

// A corner that can go on from `p` and whose object stands at or below `node`: an object stands in
// each leaf that its box touches. `but` is passed over.
const open_corner* find_below(open_trs* open, const float* p, const cell_node& node, obj_h but,
                              std::uint32_t stamp)
{
    return find_corner(open, p, stamp, [&](const open_corner& corner) {
        return corner.obj != but && box_overlap(node.box, rec(corner.obj).box);
    });
}

// The first of the leaf's objects that can go on from `p`. The list is read only to tell which of
// several comes first.
obj_h find_in_leaf(open_trs* open, const float* p, const cell_node& leaf, std::uint32_t stamp)
{
    const open_corner* one = find_below(open, p, leaf, {}, stamp);
    if (!one) return {};
    if (!find_below(open, p, leaf, one->obj, stamp)) return one->obj;
    for (const obj_h o : leaf.list)
        if (rec(o).stamp != stamp && has_open_corner_at(o, p)) return o;
    return {};
}

// Every triangle has all its neighbours, as in a sound solid.
bool all_closed(mesh_ctx* ctx)
{
    return for_each_obj_once(
        ctx, [](obj_h, const cell_obj& obj) { return tr_nbr_count(rec(obj.tr)) == 3; });
}

} // namespace

aabb near_box(const float* p)
{
    aabb box = {{p[0], p[1], p[2]}, {p[0], p[1], p[2]}};
    box_widen(&box, static_cast<double>(merge_tol));
    return box;
}

bool open_trs_collect(open_trs* open, mesh_ctx* ctx)
{
    const std::size_t objs = obj_pool.used;
    const bool closed = all_closed(ctx);
    ++ctx->visit_stamp; // for those that a polygon takes
    if (closed) return index_corners(open);
    void* states = heap_alloc(objs);
    if (!states) return false;
    collect_job job = {open, static_cast<std::uint8_t*>(std::memset(states, 0, objs)), ctx};
    const bool done = walk_leaves(
                          ctx->root, everywhere,
                          [&](const cell_node& folded) { return has_something_new(folded, job); },
                          [&](const cell_node& leaf) { return collect_leaf(leaf, &job); }) &&
                      add_far_corners(&job);
    heap_free(states);
    return done && index_corners(open);
}

void open_trs_free(open_trs* open)
{
    heap_free(open->objs);
    heap_free(open->corners);
    heap_free(open->heads);
    *open = {};
}

obj_h find_next_tr(open_trs* open, const float* p, const mesh_ctx* ctx)
{
    const open_corner* corner =
        find_corner(open, p, ctx->visit_stamp, [](const open_corner& c) { return c.is_near != 0; });
    return corner ? corner->obj : obj_h{};
}

obj_h find_next_tr_in(open_trs* open, const float* p, const aabb& box, const mesh_ctx* ctx)
{
    const std::uint32_t stamp = ctx->visit_stamp;
    obj_h found;
    walk_leaves(
        ctx->root,
        [&](const cell_node& node) {
            return box_overlap(node.box, box) && find_below(open, p, node, {}, stamp);
        },
        [&](const cell_node& leaf) {
            found = find_in_leaf(open, p, leaf, stamp);
            return !found;
        });
    return found;
}

} // namespace velmora
