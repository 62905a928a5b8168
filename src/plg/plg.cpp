#include "plg/plg.h"

#include "mesh/memory.h"
#include "mesh/vec.h"

#include <cstring>

namespace velmora {

namespace {

constexpr std::uint32_t k_first_capacity = 8; ///< enough for the rim of a missing quad

template <class item_t> bool row_resize(plg_row<item_t>* row, std::uint32_t capacity)
{
    const std::size_t old_size = sizeof(item_t) * row->capacity;
    void* grown = mm_realloc(row->block, old_size, sizeof(item_t) * capacity);
    if (!grown) return false;
    row->block = static_cast<item_t*>(grown);
    row->capacity = capacity;
    return true;
}

template <class item_t> bool row_grow(plg_row<item_t>* row)
{
    return row_resize(row, row->capacity ? row->capacity * 2 : k_first_capacity);
}

template <class item_t> bool row_append(plg_row<item_t>* row, const item_t& item)
{
    if (row->first + row->count == row->capacity && !row_grow(row)) return false;
    (*row)[row->count++] = item;
    return true;
}

// All that the block gains becomes room in front, so that rows of either direction double rarely.
template <class item_t> bool row_insert(plg_row<item_t>* row, const item_t& item)
{
    if (row->first == 0) {
        const std::uint32_t before = row->capacity;
        if (!row_grow(row)) return false;
        const std::uint32_t gained = row->capacity - before;
        std::memmove(row->block + gained, row->block, sizeof(item_t) * row->count);
        row->first = gained;
    }
    --row->first;
    ++row->count;
    (*row)[0] = item;
    return true;
}

} // namespace

bool plg_reserve(plg_rec* plg, std::uint32_t count)
{
    return row_resize(&plg->points, count) && row_resize(&plg->segs, count);
}

bool plg_add_point(plg_rec* plg, const plg_point& point)
{
    return row_append(&plg->points, point);
}

bool plg_insert_point(plg_rec* plg, const plg_point& point)
{
    return row_insert(&plg->points, point);
}

bool plg_add_seg(plg_rec* plg, obj_h source)
{
    return row_append(&plg->segs, {source});
}

bool plg_insert_seg(plg_rec* plg, obj_h source)
{
    return row_insert(&plg->segs, {source});
}

bool plg_is_closed(const plg_rec& plg)
{
    const std::uint32_t n = plg.points.count;
    return n >= 3 && pts_equal(plg.points[0].pnt, plg.points[n - 1].pnt);
}

vtx_h plg_point_vtx(const plg_rec* plg, std::uint32_t i)
{
    const std::uint32_t seg = i + 1 == plg->points.count ? 0 : i;
    const tr_h t = rec(plg->segs[seg].source).tr;
    if (!t) return {};
    const tr_rec& tr = rec(t);
    for (int k = 0; k < 3; ++k)
        if (pts_equal(corner_pos(tr, k), plg->points[i].pnt)) return tr.vtx[k];
    return {};
}

plg_cell* plg_list_push(plg_cell** head)
{
    auto* cell = static_cast<plg_cell*>(heap_alloc(sizeof(plg_cell)));
    if (!cell) return nullptr;
    *cell = {{}, *head};
    *head = cell;
    return cell;
}

void plg_list_remove(plg_cell** link)
{
    plg_cell* cell = *link;
    *link = cell->next;
    heap_free(cell->plg.points.block);
    heap_free(cell->plg.segs.block);
    heap_free(cell);
}

void plg_list_free(plg_cell** head)
{
    while (*head)
        plg_list_remove(head);
}

} // namespace velmora
