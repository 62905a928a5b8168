// repair/edge_sort.h - all edges of a list of triangles, sorted by the exact coordinates of their
// ends, so that equal edges lie side by side whatever triangles and vertex records they come from.
//
// Each edge of each triangle has two records, one for either end. A record's key is the position of
// its own corner, then that of its twin's, compared as floats: by x, then y, then z. An edge is
// thus found under both of its directions, and two triangles that share it meet in either.
//
// What a record says follows from its number: triangle k of the list has the records 6k to 6k + 5,
// edge e the two from 6k + 2e, the start record before the end record. Records are visited by their
// place in `sorted`, from 0. A record that has been taken out is passed over by all walks.
//
// The table holds no references; its triangles must outlive it and keep the coordinates of their
// corners while it is in use.
#pragma once

#include "mesh/obj_list.h"
#include "mesh/records.h"

#include <cstdint>

namespace velmora {

/// The table; all zero is an empty one.
struct edge_sort {
    std::uint32_t count;   ///< records: six for each triangle
    tr_h* trs;             ///< the triangles, in list order; owned
    std::uint32_t* sorted; ///< record at each place; owned
    std::uint32_t* live;   ///< for each record its place plus 1, 0 when taken out; owned
    std::uint8_t* steps;   ///< for each place how it differs from the place before; owned
    bool ordered;          ///< no key had a NaN, so that equal keys lie in one run each
};

/// Bits of edge_sort::steps.
enum edge_step : std::uint8_t {
    edge_step_twin = 1, ///< own key or twin's key differs
    edge_step_own = 2,  ///< own key differs
};

/// Fills the table from the triangles of `objs`, front to back, in record order.
/// @return false when memory ran out; the table is then empty
[[nodiscard]] bool edge_sort_build(const obj_list& objs, edge_sort* table);

/// Sorts by the keys, records with equal keys by number; all records are then live.
/// @return false when memory ran out; the table can then only be freed
[[nodiscard]] bool edge_sort_run(edge_sort* table);

/// Gives the memory back; the table is then empty.
void edge_sort_free(edge_sort* table);

/// The next place after `place` whose record is live, or the record count.
inline std::uint32_t edge_next_live(const edge_sort& table, std::uint32_t place)
{
    for (++place; place < table.count; ++place)
        if (table.live[table.sorted[place]] != 0) break;
    return place;
}

inline bool edge_is_live(const edge_sort& table, std::uint32_t record)
{
    return table.live[record] != 0;
}

inline void edge_take_out(edge_sort* table, std::uint32_t record)
{
    table->live[record] = 0;
}

/// The triangle of a record.
inline tr_h edge_tr(const edge_sort& table, std::uint32_t record)
{
    return table.trs[record / 6];
}

/// The record of the other end of the same edge.
constexpr std::uint32_t edge_twin(std::uint32_t record)
{
    return record ^ 1;
}

/// Slot of the edge in its triangle.
constexpr int edge_slot(std::uint32_t record)
{
    return static_cast<int>(record % 6 / 2);
}

/// Whether a record stands for the corner at which its edge begins.
constexpr bool edge_is_start(std::uint32_t record)
{
    return (record & 1) == 0;
}

/// The corner of the triangle whose position is the record's key.
constexpr int edge_corner(std::uint32_t record)
{
    return edge_is_start(record) ? edge_slot(record) : next3(edge_slot(record));
}

/// Vertex at the record's key corner, as the triangle has it now.
inline vtx_h edge_vtx(const edge_sort& table, std::uint32_t record)
{
    return rec(edge_tr(table, record)).vtx[edge_corner(record)];
}

/// The first place after `place` whose two keys are not exactly those at `place`. A NaN differs
/// from everything.
inline std::uint32_t edge_pair_end(const edge_sort& table, std::uint32_t place)
{
    for (++place; place < table.count; ++place)
        if (table.steps[place] != 0) break;
    return place;
}

/// The same for the own key alone.
inline std::uint32_t edge_own_end(const edge_sort& table, std::uint32_t place)
{
    for (++place; place < table.count; ++place)
        if (table.steps[place] & edge_step_own) break;
    return place;
}

/// The sort's comparison of the key corners of two records, negative when `a` goes before `b`:
/// 0 for one vertex record, else by coordinates, where a NaN equals everything.
int edge_compare_ends(const edge_sort& table, std::uint32_t a, std::uint32_t b);

/// Whether the key corners of two records have the same coordinates; a NaN has none.
bool edge_same_end(const edge_sort& table, std::uint32_t a, std::uint32_t b);

} // namespace velmora
