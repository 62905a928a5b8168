#include "reduce/vtx_table.h"

#include "mesh/cell_tree.h"
#include "mesh/measure.h"
#include "mesh/sort.h"
#include "mesh/vec.h"

namespace velmora {

namespace {

constexpr double k_vtx_per_tr = 0.6; ///< a closed mesh has half as many vertices as triangles
constexpr double k_table_growth = 0.2;
constexpr std::uint32_t k_least_growth = 10;

bool set_capacity(vtx_table* table, std::uint32_t capacity)
{
    void* infos = heap_realloc(table->infos, sizeof(vtx_info) * capacity);
    if (!infos) return false;
    table->infos = static_cast<vtx_info*>(infos);
    void* types = heap_realloc(table->types, sizeof(vtx_type) * capacity);
    if (!types) return false;
    table->types = static_cast<vtx_type*>(types);
    table->capacity = capacity;
    return true;
}

bool grow(vtx_table* table)
{
    const auto fifth =
        static_cast<std::uint32_t>(static_cast<double>(table->capacity) * k_table_growth);
    const std::uint32_t more = fifth > k_least_growth ? fifth : k_least_growth;
    return set_capacity(table, table->capacity + more);
}

bool vtx_table_add(vtx_h v, vtx_table* table)
{
    if (table->count == table->capacity && !grow(table)) return false;
    table->types[table->count] = vtx_unset;
    table->infos[table->count] = {vtx_ref(v), v, 0, 0, {}, {}, 0.0, 0.0};
    rec(v).tbl_index = ++table->count;
    return true;
}

// Height of the far end of edge `e` over the plane through the near end with normal `nrm`, through
// single precision; negative when the edge has no direction.
double edge_height(const tr_rec& tr, int e, const float* nrm)
{
    float edge[3];
    edge_vec(tr, e, edge);
    const double len = vec_len(edge);
    if (!vec_unit_checked(edge)) return -1.0;
    return static_cast<double>(static_cast<float>(std::fabs(vec_dot(nrm, edge)) * len));
}

double vtx_dev(const vtx_table& table, const vtx_info& info)
{
    double dev = 0.0;
    for (const tr_h t : fan_of(table, info)) {
        const tr_rec& tr = rec(t);
        const int i = tr_vtx_index(info.vtx, tr);
        if (i < 0) continue;
        const double h1 = edge_height(tr, i, info.nrm);
        if (h1 > dev) dev = h1;
        const double h2 = edge_height(tr, prev3(i), info.nrm);
        if (h2 > dev) dev = h2;
    }
    return dev;
}

struct dev_key {
    double dev;
    std::uint32_t place;
};

std::uint32_t list_dev_keys(const vtx_table& table, dev_key* keys)
{
    std::uint32_t n = 0;
    for (std::uint32_t i = 0; i < table.count; ++i)
        if (table.infos[i].fan_count != 0) keys[n++] = {table.infos[i].dev, i};
    return n;
}

void drop_fans(vtx_table* table)
{
    heap_free(table->fans);
    heap_free(table->sorted);
    table->fans = nullptr;
    table->fans_used = table->fans_capacity = 0;
    table->sorted = nullptr;
    table->sorted_count = 0;
}

} // namespace

stage_result vtx_table_init(std::uint32_t start_count, vtx_table* table, std::int32_t* err)
{
    *table = {};
    const auto capacity =
        static_cast<std::uint32_t>(static_cast<double>(start_count) * k_vtx_per_tr);
    if (capacity == 0 || set_capacity(table, capacity)) return stage_ok;
    *err = err_no_memory;
    return stage_failed;
}

stage_result vtx_table_fill(vtx_table* table, mesh_ctx* ctx)
{
    const bool done = for_each_obj_once(ctx, [&](obj_h, cell_obj& obj) {
        for (const vtx_h v : rec(obj.tr).vtx)
            if (rec(v).tbl_index == 0 && !vtx_table_add(v, table)) return false;
        return true;
    });
    return done ? stage_ok : stage_failed;
}

void vtx_dev_all(vtx_table* table)
{
    for (std::uint32_t i = 0; i < table->count; ++i)
        table->infos[i].dev = vtx_dev(*table, table->infos[i]);
}

stage_result vtx_table_sort(vtx_table* table)
{
    if (table->count == 0) return stage_ok;
    auto* keys = static_cast<dev_key*>(heap_alloc(sizeof(dev_key) * 2 * table->count));
    void* sorted = heap_alloc(sizeof(std::uint32_t) * table->count);
    if (!keys || !sorted) {
        heap_free(keys);
        heap_free(sorted);
        return stage_failed;
    }
    const std::uint32_t n = list_dev_keys(*table, keys);
    merge_sort(keys, keys + n, n, [](const dev_key& a, const dev_key& b) { return a.dev < b.dev; });
    table->sorted = static_cast<std::uint32_t*>(sorted);
    table->sorted_count = n;
    for (std::uint32_t i = 0; i < n; ++i)
        table->sorted[i] = keys[i].place;
    heap_free(keys);
    return stage_ok;
}

// A vertex that went from its fan may live on elsewhere and must forget its place, too; where it
// has died, nobody has been given its slot yet, and the write does no harm.
void vtx_table_free(vtx_table* table)
{
    for (std::uint32_t i = 0; i < table->count; ++i) {
        rec(table->infos[i].entered).tbl_index = 0;
        vtx_release(table->infos[i].vtx);
    }
    heap_free(table->infos);
    heap_free(table->types);
    drop_fans(table);
    *table = {};
}

void vtx_table_clear_fans(vtx_table* table)
{
    for (std::uint32_t i = 0; i < table->count; ++i)
        table->infos[i].fan_at = table->infos[i].fan_count = 0;
    drop_fans(table);
}

} // namespace velmora
