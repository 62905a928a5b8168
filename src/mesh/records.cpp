#include "mesh/records.h"

#include "mesh/context.h"
#include "mesh/tolerances.h"

namespace velmora {

pool<tr_rec> tr_pool;
pool<vtx_rec> vtx_pool;
pool<cell_obj> obj_pool;
bool links_may_dangle = false;

namespace {

constexpr tr_cold k_plain_cold = {{}, 0, {65535.0f, 65535.0f, 65535.0f}, {k_no_extra, {}}};

// One chunk of cold parts for each chunk of triangles, made when the first of them is written.
tr_cold* cold_chunks[k_max_chunks];

bool any_cold_chunk = false;

tr_cold* add_cold_chunk(std::uint32_t chunk)
{
    auto* made = static_cast<tr_cold*>(heap_alloc(sizeof(tr_cold) * k_chunk_size));
    if (!made) return nullptr;
    for (std::uint32_t i = 0; i < k_chunk_size; ++i)
        made[i] = k_plain_cold;
    cold_chunks[chunk] = made;
    any_cold_chunk = true;
    return made;
}

// What a dying triangle gives up, in this order. `t` keeps its slot when it was ever in the mesh,
// where it got its identity.
void tr_die(tr_h t)
{
    tr_rec& tr = rec(t);
    for (vtx_h& v : tr.vtx) {
        if (v) vtx_release(v);
        v = {};
    }
    tr_unlink_mate(t);
    const bool was_in_mesh = tr.cell || tr.id != 0;
    tr.cell = {};
    tr_unlink_nbrs(t);
    if (cold_chunks[t.i >> k_chunk_bits]) *cold_for_write(t) = k_plain_cold;
    if (!was_in_mesh) pool_give_back(&tr_pool, t);
}

} // namespace

vtx_h vtx_new()
{
    const vtx_h v = pool_take(&vtx_pool);
    if (v) rec(v) = vtx_rec{};
    return v;
}

void vtx_release(vtx_h v)
{
    vtx_rec& r = rec(v);
    if (r.holders == 0) return;
    if (r.refs != 0) r.refs = static_cast<std::uint16_t>(r.refs - 1);
    if (--r.holders == 0) pool_give_back(&vtx_pool, v);
}

void vtx_overwrite(vtx_h* slot, vtx_h v)
{
    if (*slot == v) return;
    ++rec(v).holders;
    vtx_rec& old = rec(*slot);
    if (--old.holders == 0) pool_give_back(&vtx_pool, *slot);
    *slot = v;
}

tr_h tr_new(std::int32_t* err)
{
    const tr_h t = pool_take(&tr_pool);
    if (t) {
        rec(t) = tr_rec{};
    } else {
        *err = err_no_memory;
    }
    return t;
}

void tr_release(tr_h t)
{
    tr_rec& tr = rec(t);
    if (tr.refs == 0 || --tr.refs != 0) return;
    tr_die(t);
}

void tr_unlink_nbrs(tr_h t)
{
    tr_rec& tr = rec(t);
    for (tr_h& slot : tr.nbr) {
        const tr_h n = slot;
        slot = {};
        if (!n) continue;
        for (tr_h& back : rec(n).nbr) {
            if (back != t) continue;
            back = {};
            break;
        }
    }
}

void tr_unlink_mate(tr_h t)
{
    const tr_h mate = cold(t).mate;
    if (!mate) return;
    if (cold(mate).mate == t) cold_for_write(mate)->mate = {};
    cold_for_write(t)->mate = {};
}

const tr_cold& cold(tr_h t)
{
    const tr_cold* chunk = cold_chunks[t.i >> k_chunk_bits];
    return chunk ? chunk[t.i & (k_chunk_size - 1)] : k_plain_cold;
}

tr_cold* cold_for_write(tr_h t)
{
    tr_cold* chunk = cold_chunks[t.i >> k_chunk_bits];
    if (!chunk) chunk = add_cold_chunk(t.i >> k_chunk_bits);
    return chunk ? &chunk[t.i & (k_chunk_size - 1)] : nullptr;
}

bool has_cold_parts()
{
    return any_cold_chunk;
}

void tr_set_mark(tr_h t, int number)
{
    switch (number) {
    case 5:
    case 6:
    case 15:
    case 17:
    case 19:
    case 21:
    case 23:
    case 25:
    case 31:
    case 35:
        rec(t).flags |= 1ull << number;
        break;
    case 27:
        rec(t).flags |= tr_edge_err | tr_edge_err2;
        break;
    default:
        break;
    }
}

obj_h cell_obj_new()
{
    const obj_h o = pool_take(&obj_pool);
    if (!o) return o;
    cell_obj& obj = rec(o);
    obj = cell_obj{};
    for (int i = 0; i < 3; ++i) {
        obj.box.min[i] = k_empty_box;
        obj.box.max[i] = -k_empty_box;
    }
    return o;
}

bool cell_obj_release(obj_h o)
{
    cell_obj& obj = rec(o);
    if (obj.refs == 0 || --obj.refs != 0) return false;
    if (!obj.tr) return true;
    tr_rec& tr = rec(obj.tr);
    if (tr.refs > 1 && tr.cell == o) tr.cell = {};
    tr_release(obj.tr);
    return true;
}

bool tr_assign_id(obj_h o, bool force, mesh_ctx* ctx)
{
    const tr_h t = rec(o).tr;
    if (!t) return false;
    if (ctx->next_id < ctx->tr_count) ctx->next_id = ctx->tr_count;
    if (rec(t).id == 0 || force) rec(t).id = ++ctx->next_id;
    return true;
}

void mesh_records_free()
{
    for (std::uint32_t c = 0; any_cold_chunk && c < tr_pool.memory.count; ++c) {
        heap_free(cold_chunks[c]);
        cold_chunks[c] = nullptr;
    }
    pool_empty(&tr_pool);
    pool_empty(&vtx_pool);
    pool_empty(&obj_pool);
    any_cold_chunk = links_may_dangle = false;
}

} // namespace velmora
