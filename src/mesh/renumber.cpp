#include "mesh/renumber.h"

#include "mesh/cell_tree.h"
#include "mesh/folded_cells.h"

#include <cstring>

namespace velmora {

namespace {

// New places for the records of one pool.
template <class rec_t> struct renumbering {
    pool<rec_t>* records;
    std::uint32_t* places;    // by old handle: the new one, 0 for a record that goes; owned
    std::uint32_t* order;     // by new handle: the old one; owned
    std::uint32_t count;      // records that stay: the new handles run from 1 to here
    pool_chunks<rec_t> moved; // where they are copied to; owned until it is the pool's
};

template <class rec_t> void renumbering_init(pool<rec_t>* records, renumbering<rec_t>* r)
{
    r->records = records;
    r->places = r->order = nullptr;
    r->count = r->moved.count = 0;
}

template <class rec_t> bool renumbering_open(renumbering<rec_t>* r)
{
    const std::size_t size = sizeof(std::uint32_t) * (std::size_t{r->records->used} + 1);
    r->places = static_cast<std::uint32_t*>(heap_alloc(size));
    r->order = static_cast<std::uint32_t*>(heap_alloc(size));
    if (!r->places || !r->order) return false;
    std::memset(r->places, 0, size);
    return true;
}

template <class rec_t> void renumbering_close(renumbering<rec_t>* r)
{
    heap_free(r->places);
    heap_free(r->order);
    chunks_free(&r->moved);
}

template <class rec_t> void take_next(handle<rec_t> h, renumbering<rec_t>* r)
{
    if (r->places[h.i] != 0) return;
    r->places[h.i] = ++r->count;
    r->order[r->count] = h.i;
}

template <class rec_t> handle<rec_t> new_handle(handle<rec_t> h, const renumbering<rec_t>& r)
{
    return {r.places[h.i]};
}

// From the old places in order to the new ones: the loads wait for nothing, unlike those of a
// permutation in place.
template <class rec_t> bool copy_records(renumbering<rec_t>* r)
{
    if (!chunks_add(&r->moved, (r->count >> k_chunk_bits) + 1)) return false;
    for (std::uint32_t i = 1; i <= r->count;) {
        rec_t* const chunk = r->moved.chunks[i >> k_chunk_bits];
        const std::uint32_t behind = ((i >> k_chunk_bits) + 1) << k_chunk_bits;
        const std::uint32_t end = behind <= r->count ? behind : r->count + 1;
        for (; i < end; ++i)
            chunk[i & (k_chunk_size - 1)] = pool_at(*r->records, handle<rec_t>{r->order[i]});
    }
    return true;
}

// A renumbering of one pool: `note` lists the records in their new order, `rename` corrects the
// handles that others have. Without memory nothing has happened.
template <class rec_t, class note_fn, class rename_fn>
bool renumber_pool(pool<rec_t>* records, const note_fn& note, const rename_fn& rename)
{
    auto* r = static_cast<renumbering<rec_t>*>(heap_alloc(sizeof(renumbering<rec_t>)));
    if (!r) return false;
    renumbering_init(records, r);
    bool done = renumbering_open(r);
    if (done) {
        note(r);
        done = !tree_is_torn() && copy_records(r);
    }
    if (done) {
        pool_replace(records, &r->moved, r->count);
        rename(*r);
    }
    renumbering_close(r);
    heap_free(r);
    return done;
}

// @param[out] telling  the boxes tell what is in the tree: with a NaN among the corners even a box
//                      that holds nothing may touch an endless root
bool renumber_objs(bool* telling, mesh_ctx* ctx)
{
    *telling = true;
    return renumber_pool(
        &obj_pool,
        [&](renumbering<cell_obj>* r) {
            for_each_obj_once(ctx, [&](obj_h o, const cell_obj& obj) {
                *telling = *telling && is_in_tree(obj);
                take_next(o, r);
                return true;
            });
        },
        [&](const renumbering<cell_obj>& r) {
            for (std::uint32_t i = 1; i <= r.count; ++i)
                rec(rec(obj_h{i}).tr).cell = {i};
            walk_leaves(ctx->root, everywhere, nowhere, [&](cell_node& leaf) {
                for (std::uint32_t i = 0; i < leaf.list.count; ++i)
                    leaf.list.items[i] = new_handle(leaf.list.items[i], r);
                return true;
            });
            for (std::uint32_t k = 0; the_fold.named && k < the_fold.count; ++k)
                the_fold.objs[k] = new_handle(the_fold.objs[k], r);
        });
}

// Needs the objects in order.
bool renumber_trs()
{
    return renumber_pool(
        &tr_pool,
        [](renumbering<tr_rec>* r) {
            for (std::uint32_t i = 1; i < obj_pool.used; ++i)
                take_next(rec(obj_h{i}).tr, r);
        },
        [](const renumbering<tr_rec>& r) {
            for (std::uint32_t i = 1; i < obj_pool.used; ++i)
                rec(obj_h{i}).tr = {i};
            for (std::uint32_t i = 1; i <= r.count; ++i)
                for (tr_h& n : rec(tr_h{i}).nbr)
                    n = new_handle(n, r);
        });
}

// Needs the triangles in order.
bool renumber_vtxs()
{
    return renumber_pool(
        &vtx_pool,
        [](renumbering<vtx_rec>* r) {
            for (std::uint32_t i = 1; i < tr_pool.used; ++i)
                for (const vtx_h v : rec(tr_h{i}).vtx)
                    take_next(v, r);
        },
        [](const renumbering<vtx_rec>& r) {
            for (std::uint32_t i = 1; i < tr_pool.used; ++i)
                for (vtx_h& v : rec(tr_h{i}).vtx)
                    v = new_handle(v, r);
        });
}

} // namespace

void renumber_mesh(renumber_scope scope, mesh_ctx* ctx)
{
    bool telling;
    if (!ctx->root || has_cold_parts() || !renumber_objs(&telling, ctx)) return;
    ctx->in_order = telling;
    if (!renumber_trs()) return;
    if (scope == renumber_all) renumber_vtxs();
}

} // namespace velmora
