#include "mesh/obj_list.h"

namespace velmora {

static constexpr std::uint32_t k_first_capacity = 8;

bool list_reserve(obj_list* list, std::uint32_t capacity)
{
    if (capacity <= list->capacity) return true;
    void* grown = heap_realloc(list->items, sizeof(obj_h) * capacity);
    if (!grown) return false;
    list->items = static_cast<obj_h*>(grown);
    list->capacity = capacity;
    return true;
}

bool list_push(obj_list* list, obj_h obj)
{
    if (list->count == list->capacity) {
        const std::uint32_t more = list->capacity ? list->capacity * 2 : k_first_capacity;
        if (!list_reserve(list, more)) return false;
    }
    list->items[list->count++] = cell_obj_ref(obj);
    return true;
}

bool list_take_out(obj_list* list, obj_h obj, bool* obj_died)
{
    *obj_died = false;
    for (std::uint32_t i = list->count; i-- > 0;) {
        if (list->items[i] != obj) continue;
        --list->count;
        std::memmove(list->items + i, list->items + i + 1, sizeof(obj_h) * (list->count - i));
        *obj_died = cell_obj_release(obj);
        return true;
    }
    return false;
}

void list_free(obj_list* list)
{
    for (const obj_h obj : *list)
        cell_obj_release(obj);
    heap_free(list->items);
    *list = {};
}

} // namespace velmora
