#include "topo/crowded_edge.h"

#include "mesh/memory.h"

#include <algorithm>
#include <cstring>
#include <span>

namespace velmora {

namespace {

constexpr std::uint32_t k_first_slots = 64;

bool is_taken(const crowd_user& user)
{
    return static_cast<bool>(live_nbr(rec(user.tr), user.slot));
}

vtx_h third_of(const crowd_user& user)
{
    return rec(user.tr).vtx[prev3(user.slot)];
}

// ---- users of one edge in one leaf

std::uint32_t count_users(const obj_list& list, const crowded_edge& edge)
{
    std::uint32_t count = 0;
    for (const obj_h o : list)
        count += tr_edge_index(edge.a, edge.b, rec(rec(o).tr)) >= 0;
    return count;
}

void gather_users(const obj_list& list, crowded_edge* edge)
{
    std::uint32_t at = 0;
    for (const obj_h o : list) {
        const tr_h t = rec(o).tr;
        const int slot = tr_edge_index(edge->a, edge->b, rec(t));
        if (slot < 0) continue;
        edge->users[at] = {t, slot, at + 1};
        edge->thirds[at] = {third_of(edge->users[at]), at};
        ++at;
    }
    std::sort(edge->thirds, edge->thirds + at, [](const crowd_third& x, const crowd_third& y) {
        return x.third.i != y.third.i ? x.third.i < y.third.i : x.place < y.place;
    });
}

bool links_are_mutual(tr_h t)
{
    const tr_rec& tr = rec(t);
    for (int k = 0; k < 3; ++k) {
        if (!tr.nbr[k]) continue;
        const tr_h n = live_nbr(tr, k);
        if (!n || tr_nbr_index(t, rec(n)) < 0) return false;
    }
    return true;
}

bool crowd_init(const obj_list& list, crowded_edge* edge)
{
    edge->count = count_users(list, *edge);
    edge->users = heap_array<crowd_user>(edge->count);
    edge->thirds = heap_array<crowd_third>(edge->count);
    if (!edge->users || !edge->thirds) return false;
    gather_users(list, edge);
    edge->mutual = std::all_of(edge->users, edge->users + edge->count,
                               [](const crowd_user& user) { return links_are_mutual(user.tr); });
    return true;
}

void crowd_free(crowded_edge* edge)
{
    heap_free(edge->users);
    heap_free(edge->thirds);
}

// The users with that third corner.
std::span<const crowd_third> users_with(const crowded_edge& edge, vtx_h third)
{
    const auto range = std::equal_range(
        edge.thirds, edge.thirds + edge.count, crowd_third{third, 0},
        [](const crowd_third& x, const crowd_third& y) { return x.third.i < y.third.i; });
    return {range.first, range.second};
}

bool is_taken_before(const crowded_edge& edge, const crowd_third& user, std::uint32_t place)
{
    return user.place < place && is_taken(edge.users[user.place]);
}

std::uint32_t count_alike(const crowded_edge& edge, std::uint32_t place, vtx_h third, tr_h t)
{
    std::uint32_t count = 0;
    for (const crowd_third& user : users_with(edge, third))
        count += edge.users[user.place].tr != t && is_taken_before(edge, user, place);
    return count;
}

// Whether `n` is a taken user before `place`.
bool is_passed(const crowded_edge& edge, std::uint32_t place, tr_h n, vtx_h third)
{
    for (const crowd_third& user : users_with(edge, third))
        if (edge.users[user.place].tr == n) return is_taken_before(edge, user, place);
    return false;
}

// Neighbours of `t` among the users, other than those with its vertices.
std::uint32_t count_linked(const crowded_edge& edge, std::uint32_t place, vtx_h third, tr_h t)
{
    std::uint32_t count = 0;
    const tr_rec& tr = rec(t);
    for (int k = 0; k < 3; ++k) {
        const tr_h n = live_nbr(tr, k);
        if (!n || (k > 0 && n == tr.nbr[0]) || (k > 1 && n == tr.nbr[1])) continue;
        if (tr_nbr_index(t, rec(n)) < 0) continue; // an error all the same
        const int slot = tr_edge_index(edge.a, edge.b, rec(n));
        const vtx_h far = slot < 0 ? third : rec(n).vtx[prev3(slot)];
        count += far != third && is_passed(edge, place, n, far);
    }
    return count;
}

// ---- the table

std::uint32_t slot_of(const crowded_edges& crowds, const crowded_edge& key)
{
    std::uint64_t hash = (std::uint64_t{key.a.i} << 32 | key.b.i) * 0x9E3779B97F4A7C15ull;
    hash = (hash ^ hash >> 32 ^ key.leaf) * 0x9E3779B97F4A7C15ull;
    const std::uint32_t mask = crowds.slot_count - 1;
    auto slot = static_cast<std::uint32_t>(hash >> 32) & mask;
    for (; crowds.slots[slot] != 0; slot = (slot + 1) & mask) {
        const crowded_edge& edge = crowds.edges[crowds.slots[slot] - 1];
        if (edge.a == key.a && edge.b == key.b && edge.leaf == key.leaf) break;
    }
    return slot;
}

bool reserve_edge(crowded_edges* crowds)
{
    if (crowds->count < crowds->capacity) return true;
    const std::uint32_t slot_count = crowds->slot_count ? 2 * crowds->slot_count : k_first_slots;
    auto* const slots = heap_array<std::uint32_t>(slot_count);
    void* grown =
        slots ? heap_realloc(crowds->edges, sizeof(crowded_edge) * slot_count / 2) : nullptr;
    if (!grown) {
        heap_free(slots);
        return false;
    }
    heap_free(crowds->slots);
    crowds->slots = slots;
    crowds->slot_count = slot_count;
    crowds->edges = static_cast<crowded_edge*>(grown);
    crowds->capacity = slot_count / 2;
    std::memset(slots, 0, sizeof(std::uint32_t) * slot_count);
    for (std::uint32_t i = 0; i < crowds->count; ++i)
        slots[slot_of(*crowds, crowds->edges[i])] = i + 1;
    return true;
}

} // namespace

crowded_edge* find_crowd(crowded_edges* crowds, vtx_h a, vtx_h b, const cell_node& leaf)
{
    crowded_edge key = {a.i < b.i ? a : b, a.i < b.i ? b : a, leaf.serial, 0,
                        nullptr,           nullptr,           false};
    if (!reserve_edge(crowds)) return nullptr;
    const std::uint32_t slot = slot_of(*crowds, key);
    if (crowds->slots[slot] == 0) {
        if (!crowd_init(leaf.list, &key)) {
            crowd_free(&key);
            return nullptr;
        }
        crowds->edges[crowds->count] = key;
        crowds->slots[slot] = ++crowds->count;
    }
    return &crowds->edges[crowds->slots[slot] - 1];
}

void crowds_free(crowded_edges* crowds)
{
    for (std::uint32_t i = 0; i < crowds->count; ++i)
        crowd_free(&crowds->edges[i]);
    heap_free(crowds->edges);
    heap_free(crowds->slots);
    *crowds = {};
}

std::uint32_t next_free_user(const crowded_edge& edge, std::uint32_t place)
{
    std::uint32_t found = place;
    while (found < edge.count && is_taken(edge.users[found]))
        found = edge.users[found].next;
    while (place < found) {
        const std::uint32_t next = edge.users[place].next;
        edge.users[place].next = found;
        place = next;
    }
    return found;
}

std::uint32_t count_claims(const crowded_edge& edge, std::uint32_t place, std::uint32_t free,
                           tr_h t)
{
    const vtx_h third = rec(t).vtx[prev3(tr_edge_index(edge.a, edge.b, rec(t)))];
    return place - free - count_alike(edge, place, third, t) - count_linked(edge, place, third, t);
}

} // namespace velmora
