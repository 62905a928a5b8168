// mesh/obj_list.h - ordered lists of objects, as leaves and work chains hold them.
//
// A new entry goes in front. In memory a list is one run that grows at its end, so "front to back"
// is read backwards; range-for does that. Each entry holds a reference on its object.
#pragma once

#include "mesh/records.h"

#include <cstdint>

namespace velmora {

/// A list of objects; all zero is the empty list.
struct obj_list {
    obj_h* items;           ///< the run, last entry first in list order; owned
    std::uint32_t count;    ///< entries
    std::uint32_t capacity; ///< room in `items`
};

/// Walks a list front to back. Pushing or taking out during the walk is not allowed.
struct obj_list_iter {
    const obj_h* at; ///< one past the entry

    obj_h operator*() const
    {
        return at[-1]; // NOLINT(clang-analyzer-core.NonNullParamChecker): no run, no entries
    }
    obj_list_iter& operator++()
    {
        --at;
        return *this;
    }
    friend bool operator==(obj_list_iter a, obj_list_iter b) = default;
};

inline obj_list_iter begin(const obj_list& list)
{
    return {list.items + list.count};
}
inline obj_list_iter end(const obj_list& list)
{
    return {list.items};
}

/// The entry at `place`, counted from the front.
inline obj_h list_at(const obj_list& list, std::uint32_t place)
{
    return list.items[list.count - 1 - place];
}

/// Makes room for `capacity` entries; false when memory ran out, and the list stands.
[[nodiscard]] bool list_reserve(obj_list* list, std::uint32_t capacity);

/// Puts `obj` in front, with a reference of the list's own; false when memory ran out.
[[nodiscard]] bool list_push(obj_list* list, obj_h obj);

/// Takes the entry of `obj` out and drops its reference; false when it is not listed.
/// @param[out] obj_died  whether that was the last reference
bool list_take_out(obj_list* list, obj_h obj, bool* obj_died);

/// Drops all references, front to back, and the run; the list is then empty.
void list_free(obj_list* list);

} // namespace velmora
