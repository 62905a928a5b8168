#include "mesh/soup_plant.h"

#include "mesh/box.h"
#include "mesh/cell_tree.h"
#include "mesh/folded_cells.h"
#include "mesh/soup_spacing.h"
#include "mesh/tree_fill.h"
#include "mesh/vec.h"

#include <cstring>

namespace velmora {

namespace {

// All corners coincide: such a triangle is refused by the tree. Coordinates are no NaN here.
bool is_point(const tr_soup& soup, std::uint32_t t)
{
    const float* a = soup_pos(soup, t, 0);
    const float* b = soup_pos(soup, t, 1);
    const float* c = soup_pos(soup, t, 2);
    return pts_coincide(a, b) && pts_coincide(b, c) && pts_coincide(c, a);
}

aabb box_of(const tr_soup& soup, std::uint32_t t, double margin)
{
    aabb box = k_no_box;
    for (std::uint32_t i = 0; i < 3; ++i)
        box_add(&box, soup_pos(soup, t, i));
    box_widen(&box, margin);
    return box;
}

// Objects are numbered as they are inserted: the last triangle first.
std::uint32_t tr_at(const tr_soup& soup, std::uint32_t k)
{
    return soup.count - 1 - k;
}

// What is needed until all records are made; all owned.
struct planting {
    tr_soup* soup;
    double margin;
    mesh_ctx* ctx;
    obj_h* objs;          // by number: its object, once there is one
    vtx_h* vtxs;          // welded: by place, its vertex once there is one
    std::uint32_t* users; // where some triangle has two corners at one place: triangles by place
    std::uint8_t* close;  // where some places are close to others: which ones
    weld_state weld;
};

void planting_free(planting* p)
{
    heap_free(p->objs);
    heap_free(p->vtxs);
    heap_free(p->users);
    heap_free(p->close);
}

aabb box_of_insertion(const planting& p, std::uint32_t k)
{
    return box_of(*p.soup, tr_at(*p.soup, k), p.margin);
}

// The numbers that are inserted.
std::uint32_t list_stream(const planting& p, std::uint32_t* stream)
{
    std::uint32_t n = 0;
    for (std::uint32_t k = 0; k < p.soup->count; ++k)
        if (!is_point(*p.soup, tr_at(*p.soup, k))) stream[n++] = k;
    return n;
}

fill_result fill_with_boxes(const aabb* boxes, planting* p)
{
    const std::uint32_t count = p->soup->count;
    auto* const stream = heap_array<std::uint32_t>(count);
    if (!stream) return fill_no_memory;
    const std::uint32_t inserted = list_stream(*p, stream);
    const fill_result filled = tree_fill(boxes, count, stream, inserted, fill_may_grow, p->ctx);
    heap_free(stream);
    if (filled == fill_done) p->ctx->tr_count = inserted;
    return filled;
}

plant_result fill_tree(planting* p)
{
    const std::uint32_t count = p->soup->count;
    auto* const boxes = heap_array<aabb>(count);
    for (std::uint32_t k = 0; boxes && k < count; ++k)
        boxes[k] = box_of_insertion(*p, k);
    const fill_result filled = boxes ? fill_with_boxes(boxes, p) : fill_no_memory;
    if (filled == fill_done && the_fold.used) {
        fold_keep(boxes, count);
    } else {
        heap_free(boxes);
    }
    if (filled == fill_declined) return plant_declined;
    return filled == fill_done ? plant_done : plant_no_memory;
}

bool has_doubled_corner(const std::uint32_t* c)
{
    return c[0] == c[1] || c[1] == c[2] || c[2] == c[0];
}

// Corners of one triangle never meet each other in the merge: at a place that only it has, they
// stay apart. Counts the triangles of each place when there are such corners at all.
bool count_users(planting* p)
{
    const tr_soup& soup = *p->soup;
    bool any = false;
    for (std::uint32_t t = 0; t < soup.count && !any; ++t)
        any = has_doubled_corner(soup.corners + std::size_t{3} * t) && !is_point(soup, t);
    if (!any) return true;
    p->users = heap_array<std::uint32_t>(soup.place_count);
    if (!p->users) return false;
    std::memset(p->users, 0, sizeof(std::uint32_t) * soup.place_count);
    for (std::uint32_t t = 0; t < soup.count; ++t) {
        const std::uint32_t* c = soup.corners + std::size_t{3} * t;
        if (is_point(soup, t)) continue;
        ++p->users[c[0]];
        if (c[1] != c[0]) ++p->users[c[1]];
        if (c[2] != c[0] && c[2] != c[1]) ++p->users[c[2]];
    }
    return true;
}

bool prepare_vertices(plant_vertices how, planting* p)
{
    const std::uint32_t places = p->soup->place_count;
    heap_free(p->soup->slots);
    p->soup->slots = nullptr;
    const place_spacing spacing =
        how == plant_welded ? soup_spacing(*p->soup, &p->close) : places_unknown;
    if (spacing == places_unknown) return true;
    p->weld = spacing == places_apart ? weld_distinct : weld_some;
    p->vtxs = heap_array<vtx_h>(places);
    if (!p->vtxs || !count_users(p)) return false;
    std::memset(static_cast<void*>(p->vtxs), 0, sizeof(vtx_h) * places);
    return true;
}

vtx_h new_vertex(const tr_soup& soup, std::uint32_t place)
{
    const vtx_h v = vtx_new();
    if (v) vec_copy(soup.places + std::size_t{3} * place, rec(v).pos);
    return v;
}

bool is_left_to_merge(const planting& p, std::uint32_t place)
{
    return p.weld == weld_none || (p.close && p.close[place]);
}

// The place's vertex, made when this is its first corner.
vtx_h vertex_of(planting* p, std::uint32_t place)
{
    if (is_left_to_merge(*p, place)) return new_vertex(*p->soup, place);
    vtx_h& v = p->vtxs[place];
    if (v && p->users && p->users[place] == 1) {
        if (p->weld == weld_distinct) p->weld = weld_done;
        return new_vertex(*p->soup, place);
    }
    if (!v) v = new_vertex(*p->soup, place);
    return v;
}

bool set_corners(planting* p, std::uint32_t k, tr_rec* tr)
{
    const std::uint32_t* corners = p->soup->corners + std::size_t{3} * tr_at(*p->soup, k);
    for (int i = 0; i < 3; ++i) {
        const vtx_h v = vertex_of(p, corners[i]);
        if (!v) return false;
        if (p->close && p->close[corners[i]]) tr->flags |= tr_may_merge;
        tr->vtx[i] = vtx_ref(v);
    }
    return true;
}

// The object of the k-th insertion, with its triangle. Its box is found anew: kept, the boxes would
// take a fifth of the memory that the records need.
obj_h new_object(planting* p, std::uint32_t k)
{
    std::int32_t err;
    const obj_h o = cell_obj_new();
    const tr_h t = o ? tr_new(&err) : tr_h{};
    if (!t) return {};
    tr_rec& tr = rec(t);
    tr.flags = tr_loaded;
    tr.cell = o;
    tr.id = k + 1;
    rec(o).tr = tr_ref(t);
    rec(o).box = box_of_insertion(*p, k);
    return set_corners(p, k, &tr) ? o : obj_h{};
}

// The object of an entry, which is a number plus 1 yet.
obj_h& made_obj(planting* p, obj_h entry)
{
    return p->objs[entry.i - 1];
}

bool make_in_leaf(planting* p, cell_node* leaf)
{
    for (std::uint32_t i = leaf->list.count; i-- > 0;) {
        obj_h& entry = leaf->list.items[i];
        obj_h& obj = made_obj(p, entry);
        if (!obj) obj = new_object(p, entry.i - 1);
        if (!obj) return false;
        entry = cell_obj_ref(obj);
    }
    return true;
}

// A folded cell stays so when all of its objects have been met; then its entries hold them.
bool is_first_met_in(planting* p, const cell_node& folded)
{
    const obj_list& stream = folded.list;
    for (std::uint32_t i = 0; i < stream.count; ++i)
        if (!made_obj(p, stream.items[i])) return true;
    for (std::uint32_t i = 0; i < stream.count; ++i)
        cell_obj_ref(made_obj(p, stream.items[i]));
    return false;
}

// Puts the objects' handles into the lists, making each object where a walk first meets it.
bool make_records(planting* p)
{
    const std::uint32_t count = p->soup->count;
    p->objs = heap_array<obj_h>(count);
    if (!p->objs) return false;
    std::memset(static_cast<void*>(p->objs), 0, sizeof(obj_h) * count);
    pool_reserve(&obj_pool, p->ctx->tr_count);
    pool_reserve(&tr_pool, p->ctx->tr_count);
    pool_reserve(&vtx_pool, p->weld == weld_none ? p->ctx->tr_count * 3 : p->soup->place_count);
    const bool done = walk_leaves(
        p->ctx->root, everywhere, [p](const cell_node& n) { return is_first_met_in(p, n); },
        [p](cell_node& leaf) { return make_in_leaf(p, &leaf); });
    if (!done || !the_fold.used) return done;
    fold_name(p->objs);
    p->objs = nullptr;
    return true;
}

} // namespace

plant_result soup_plant(tr_soup* soup, plant_vertices how, double margin, mesh_ctx* ctx)
{
    planting p = {soup, margin, ctx, nullptr, nullptr, nullptr, nullptr, weld_none};
    plant_result result = fill_tree(&p);
    if (result == plant_done) {
        ctx->next_id = soup->count;
        const bool prepared = prepare_vertices(how, &p);
        ctx->in_order = prepared && make_records(&p);
        ctx->topo->weld = p.weld;
        if (!ctx->in_order) {
            cell_forget_lists(ctx->root); // some entries are bare numbers yet
            result = plant_no_memory;
        }
        soup_free(soup);
    }
    planting_free(&p);
    return result;
}

static obj_h new_loose_obj(const tr_soup& soup, std::uint32_t t, double margin, obj_list* list)
{
    const obj_h o = cell_obj_new();
    if (!o || !list_push(list, o)) return {};
    std::int32_t err;
    const tr_h made = tr_new(&err);
    if (!made) return {};
    tr_rec& tr = rec(made);
    rec(o).tr = tr_ref(made);
    rec(o).box = box_of(soup, t, margin);
    tr.flags = tr_loaded;
    tr.cell = o;
    for (std::uint32_t i = 0; i < 3; ++i) {
        const vtx_h v = new_vertex(soup, soup.corners[std::size_t{3} * t + i]);
        if (!v) return {};
        tr.vtx[i] = vtx_ref(v);
    }
    return o;
}

bool soup_to_list(const tr_soup& soup, double margin, obj_list* list)
{
    for (std::uint32_t t = 0; t < soup.count; ++t)
        if (!new_loose_obj(soup, t, margin, list)) return false;
    return true;
}

} // namespace velmora
