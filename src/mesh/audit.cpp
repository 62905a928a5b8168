#include "mesh/audit.h"

#include "mesh/cell_tree.h"
#include "mesh/folded_cells.h"

namespace velmora {

namespace {

constexpr std::uint32_t k_free_slot = 0x80000000u; ///< this slot of the pool is nobody's record
constexpr std::uint32_t k_max_lines = 20;          ///< further faults are only counted

template <class rec_t> std::uint32_t* new_counts(const pool<rec_t>& p)
{
    const std::size_t size = sizeof(std::uint32_t) * (static_cast<std::size_t>(p.used) + 1);
    auto* counts = static_cast<std::uint32_t*>(heap_alloc(size));
    if (!counts) return nullptr;
    std::memset(counts, 0, size);
    for (std::uint32_t i = p.free_head; i != 0;) {
        counts[i] = k_free_slot;
        std::memcpy(&i, &pool_at(p, handle<rec_t>{i}), sizeof i);
    }
    return counts;
}

void free_counts(count_audit* audit)
{
    heap_free(audit->objs);
    heap_free(audit->trs);
    heap_free(audit->vtxs);
    *audit = {};
}

void complain(count_audit* audit, std::FILE* log, const char* kind, std::uint32_t number,
              std::uint32_t counted, std::uint32_t told)
{
    if (++audit->faults > k_max_lines || !log) return;
    if (counted & k_free_slot) {
        std::fprintf(log, "audit: %s %u was given back and has %u holders\n", kind, number,
                     counted & ~k_free_slot);
    } else {
        std::fprintf(log, "audit: %s %u counts %u holders and has %u\n", kind, number, told,
                     counted);
    }
}

template <class rec_t, class count_fn>
void compare(count_audit* audit, std::FILE* log, const char* kind, const pool<rec_t>& p,
             const std::uint32_t* counts, const count_fn& told)
{
    for (std::uint32_t i = 1; i < p.used; ++i) {
        if (counts[i] == k_free_slot) continue;
        const bool is_free = (counts[i] & k_free_slot) != 0;
        const std::uint32_t says = is_free ? 0 : told(pool_at(p, handle<rec_t>{i}));
        if (is_free || says != counts[i]) complain(audit, log, kind, i, counts[i], says);
    }
}

// What is held holds in turn, each record once.
void count_held(count_audit* audit)
{
    for (std::uint32_t i = 1; i < obj_pool.used; ++i)
        if (audit->objs[i] != 0) audit_tr(audit, rec(obj_h{i}).tr);
    for (std::uint32_t i = 1; i < tr_pool.used; ++i) {
        if (audit->trs[i] == 0 || (audit->trs[i] & k_free_slot)) continue;
        for (const vtx_h v : rec(tr_h{i}).vtx)
            audit_vtx(audit, v);
    }
}

std::uint32_t times_linked(const tr_rec& from, tr_h to)
{
    std::uint32_t times = 0;
    for (int i = 0; i < 3; ++i)
        if (live_nbr(from, i) == to) ++times;
    return times;
}

bool link_is_sound(tr_h t, tr_h n)
{
    if (n == t || rec(n).refs == 0) return false;
    return times_linked(rec(n), t) == times_linked(rec(t), n);
}

} // namespace

bool audit_open(count_audit* audit, const mesh_ctx* ctx)
{
    *audit = {};
    audit->objs = new_counts(obj_pool);
    audit->trs = new_counts(tr_pool);
    audit->vtxs = new_counts(vtx_pool);
    if (!audit->objs || !audit->trs || !audit->vtxs) {
        free_counts(audit);
        return false;
    }
    if (!ctx->root) return true;
    const auto count_listed = [&](obj_h o) {
        if (audit->objs[o.i] == 0) ++audit->listed_objs;
        ++audit->objs[o.i];
        return false;
    };
    const auto count_folded = [&](const cell_node& node) { return any_folded(node, count_listed); };
    walk_leaves(ctx->root, everywhere, count_folded, [&](cell_node& leaf) {
        for (const obj_h o : leaf.list)
            count_listed(o);
        return true;
    });
    return true;
}

void audit_list(count_audit* audit, const obj_list& list)
{
    for (const obj_h o : list)
        audit_obj(audit, o);
}

void audit_obj(count_audit* audit, obj_h obj)
{
    if (obj) ++audit->objs[obj.i];
}

void audit_tr(count_audit* audit, tr_h tr)
{
    if (tr) ++audit->trs[tr.i];
}

void audit_vtx(count_audit* audit, vtx_h vtx)
{
    if (vtx) ++audit->vtxs[vtx.i];
}

std::uint32_t audit_close(count_audit* audit, std::FILE* log)
{
    count_held(audit);
    compare(audit, log, "object", obj_pool, audit->objs, [](const cell_obj& o) { return o.refs; });
    compare(audit, log, "triangle", tr_pool, audit->trs, [](const tr_rec& t) { return t.refs; });
    compare(audit, log, "vertex", vtx_pool, audit->vtxs,
            [](const vtx_rec& v) { return v.holders; });
    const std::uint32_t faults = audit->faults;
    free_counts(audit);
    return faults;
}

std::uint32_t audit_counts(const mesh_ctx* ctx, const obj_list* const* lists, std::uint32_t count,
                           std::FILE* log)
{
    count_audit audit;
    if (!audit_open(&audit, ctx)) return 1;
    for (std::uint32_t i = 0; i < count; ++i)
        audit_list(&audit, *lists[i]);
    return audit_close(&audit, log);
}

std::uint32_t audit_links(mesh_ctx* ctx, std::FILE* log)
{
    std::uint32_t faults = 0;
    for_each_obj_once(ctx, [&](obj_h, const cell_obj& obj) {
        for (int i = 0; i < 3; ++i) {
            const tr_h n = rec(obj.tr).nbr[i];
            if (!n || link_is_sound(obj.tr, n)) continue;
            if (++faults <= k_max_lines && log)
                std::fprintf(log, "audit: triangle %u has an unsound link %u across edge %d\n",
                             obj.tr.i, n.i, i);
        }
        return true;
    });
    return faults;
}

} // namespace velmora
