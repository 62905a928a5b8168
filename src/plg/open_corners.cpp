#include "plg/open_corners.h"

#include "mesh/box.h"
#include "mesh/memory.h"
#include "mesh/vec.h"
#include "plg/pt_hash.h"
#include "plg/tr_edges.h"

#include <cstring>

namespace velmora {

namespace {

constexpr std::uint32_t k_first_capacity = 256;

bool make_room(open_corner_tbl* tbl)
{
    if (tbl->count < tbl->capacity) return true;
    const std::uint32_t capacity = tbl->capacity ? tbl->capacity * 2 : k_first_capacity;
    void* grown = heap_realloc(tbl->corners, sizeof(open_corner) * capacity);
    if (!grown) return false;
    tbl->corners = static_cast<open_corner*>(grown);
    tbl->capacity = capacity;
    return true;
}

} // namespace

bool open_corners_add(open_corner_tbl* tbl, obj_h obj, const aabb& leaf_box)
{
    const tr_rec& tr = rec(rec(obj).tr);
    for (int k = 0; k < 3; ++k) {
        if (!corner_one_free(tr, k)) continue;
        if (!make_room(tbl)) return false;
        open_corner& corner = tbl->corners[tbl->count++];
        corner = {{0.0f, 0.0f, 0.0f}, obj, &leaf_box, 0};
        vec_copy(corner_pos(tr, k), corner.pnt);
    }
    return true;
}

// Filled from the back, so that each chain runs in the order of the walk. A point with a NaN is
// never found and would only lengthen a chain.
bool open_corners_index(open_corner_tbl* tbl)
{
    const std::uint32_t size = table_size_for(tbl->count);
    void* heads = heap_alloc(sizeof(std::uint32_t) * size);
    if (!heads) return false;
    tbl->heads = static_cast<std::uint32_t*>(std::memset(heads, 0, sizeof(std::uint32_t) * size));
    tbl->mask = size - 1;
    for (std::uint32_t i = tbl->count; i-- > 0;) {
        open_corner& corner = tbl->corners[i];
        if (vec_has_nan(corner.pnt)) continue;
        std::uint32_t* head = &tbl->heads[pt_hash(corner.pnt) & tbl->mask];
        corner.next = *head;
        *head = i + 1;
    }
    return true;
}

void open_corners_free(open_corner_tbl* tbl)
{
    heap_free(tbl->corners);
    heap_free(tbl->heads);
    *tbl = {};
}

obj_h find_next_tr(open_corner_tbl* tbl, const float* p, const aabb& box, std::uint32_t used_stamp)
{
    std::uint32_t* link = &tbl->heads[pt_hash(p) & tbl->mask];
    while (*link) {
        open_corner& corner = tbl->corners[*link - 1];
        if (rec(corner.obj).stamp == used_stamp) {
            *link = corner.next;
            continue;
        }
        if (pts_same(corner.pnt, p) && box_overlap(*corner.leaf_box, box)) return corner.obj;
        link = &corner.next;
    }
    return {};
}

} // namespace velmora
