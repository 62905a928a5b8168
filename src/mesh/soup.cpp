#include "mesh/soup.h"

#include "mesh/pt_grid.h"

#include <cstring>

namespace velmora {

namespace {

constexpr std::uint32_t k_first_trs = 1024;
static_assert(k_soup_ahead % 3 == 0 && k_soup_ahead <= k_first_trs);
constexpr std::uint32_t k_nothing = 0xFFFFFFFFu;
constexpr std::uint32_t k_cells_ahead = 32;
constexpr std::uint32_t k_most_corners = 0xFFFF; ///< of a place: what a vertex can count

std::uint32_t hash_of(const float* pos)
{
    std::uint32_t bits[3];
    std::memcpy(bits, pos, sizeof bits);
    const std::uint64_t xy = static_cast<std::uint64_t>(bits[0]) << 32 | bits[1];
    std::uint64_t h = xy * 0x9E3779B97F4A7C15ull;
    h = (h ^ h >> 32 ^ bits[2]) * 0xD6E8FEB86659FD93ull;
    return static_cast<std::uint32_t>(h >> 32);
}

const float* place_pos(const tr_soup& soup, std::uint32_t place)
{
    return &soup.places[std::size_t{3} * place];
}

bool same_bits(const float* a, const float* b)
{
    std::uint32_t bits_a[3];
    std::uint32_t bits_b[3];
    std::memcpy(bits_a, a, sizeof bits_a);
    std::memcpy(bits_b, b, sizeof bits_b);
    return bits_a[0] == bits_b[0] && bits_a[1] == bits_b[1] && bits_a[2] == bits_b[2];
}

// The slot of the position, or the free one where it would stand; the table is never full.
std::uint32_t* slot_of(const tr_soup& soup, const float* pos, std::uint32_t hash)
{
    std::uint32_t slot = hash & (soup.slot_count - 1);
    while (soup.slots[slot] != 0 && !same_bits(place_pos(soup, soup.slots[slot] - 1), pos))
        slot = (slot + 1) & (soup.slot_count - 1);
    return &soup.slots[slot];
}

template <class item_t> bool grow_array(item_t** items, std::size_t count)
{
    void* grown = heap_realloc(*items, sizeof(item_t) * count);
    if (grown) *items = static_cast<item_t*>(grown);
    return grown != nullptr;
}

// Twice the slots there were, which are at most half full.
bool grow_slots(tr_soup* soup)
{
    const std::uint32_t slot_count = soup->slot_count ? soup->slot_count * 2 : 4 * k_first_trs;
    const std::size_t size = sizeof(std::uint32_t) * slot_count;
    auto* slots = slot_count ? static_cast<std::uint32_t*>(heap_alloc(size)) : nullptr;
    if (!slots) return false;
    heap_free(soup->slots);
    soup->slots = slots;
    soup->slot_count = slot_count;
    std::memset(slots, 0, size);
    for (std::uint32_t p = 0; p < soup->place_count; ++p)
        *slot_of(*soup, place_pos(*soup, p), hash_of(place_pos(*soup, p))) = p + 1;
    return true;
}

bool reserve_places(tr_soup* soup)
{
    const std::uint32_t wanted = soup->place_count + k_soup_ahead;
    if (wanted > soup->place_capacity) {
        const std::uint32_t more = soup->place_capacity ? soup->place_capacity * 2 : k_first_trs;
        if (!grow_array(&soup->places, std::size_t{3} * more)) return false;
        soup->place_capacity = more;
    }
    return wanted <= soup->slot_count / 2 || grow_slots(soup);
}

bool reserve_tr(tr_soup* soup)
{
    if (soup->count < soup->capacity) return true;
    const std::uint32_t more = soup->capacity ? soup->capacity * 2 : k_first_trs;
    if (!grow_array(&soup->corners, std::size_t{3} * more)) return false;
    soup->capacity = more;
    return true;
}

std::uint32_t place_of(const float* pos, std::uint32_t hash, tr_soup* soup)
{
    std::uint32_t* const slot = slot_of(*soup, pos, hash);
    if (*slot == 0) {
        std::memcpy(soup->places + std::size_t{3} * soup->place_count, pos, sizeof(float) * 3);
        *slot = ++soup->place_count;
    }
    return *slot - 1;
}

bool all_finite(const tr_soup& soup)
{
    bool finite = std::isfinite(merge_tol) && merge_tol >= 0.0f;
    for (std::size_t i = 0; i < std::size_t{3} * soup.place_count; ++i)
        finite &= std::isfinite(soup.places[i]);
    return finite;
}

// Places chained by the cell of the grid that they are in.
struct cell_chains {
    std::uint32_t* heads;
    std::uint32_t* nexts; // by place
    std::uint32_t mask;
};

bool chains_init(std::uint32_t places, cell_chains* chains)
{
    std::uint64_t heads = 64;
    while (heads < places)
        heads *= 2;
    chains->heads = static_cast<std::uint32_t*>(heap_alloc(sizeof(std::uint32_t) * heads));
    chains->nexts = static_cast<std::uint32_t*>(heap_alloc(sizeof(std::uint32_t) * places));
    chains->mask = static_cast<std::uint32_t>(heads - 1);
    if (!chains->heads || !chains->nexts) return false;
    std::memset(chains->heads, 0xFF, sizeof(std::uint32_t) * heads);
    return true;
}

// Adds a place, unless another is close to it.
bool add_lonely(const tr_soup& soup, const pt_grid& grid, std::uint32_t place,
                const grid_cell& cell, cell_chains* chains)
{
    const float* pos = place_pos(soup, place);
    const bool lonely = for_each_close_cell(cell, [&](std::uint32_t hash) {
        for (std::uint32_t p = chains->heads[hash & chains->mask]; p != k_nothing;
             p = chains->nexts[p])
            if (are_close(grid, place_pos(soup, p), pos)) return false;
        return true;
    });
    const int here[3] = {0, 0, 0};
    std::uint32_t& head = chains->heads[cell_hash(cell, here) & chains->mask];
    chains->nexts[place] = head;
    head = place;
    return lonely;
}

// The same for a run of places. The heads are all over a table larger than the cache: those of the
// cells themselves are fetched before the first is looked at.
bool add_lonely_run(const tr_soup& soup, const pt_grid& grid, std::uint32_t first,
                    cell_chains* chains)
{
    const std::uint32_t left = soup.place_count - first;
    const std::uint32_t count = left < k_cells_ahead ? left : k_cells_ahead;
    grid_cell cells[k_cells_ahead];
    const int here[3] = {0, 0, 0};
    for (std::uint32_t i = 0; i < count; ++i) {
        cells[i] = cell_of(grid, place_pos(soup, first + i));
        __builtin_prefetch(&chains->heads[cell_hash(cells[i], here) & chains->mask]);
    }
    bool lonely = true;
    for (std::uint32_t i = 0; i < count && lonely; ++i)
        lonely = add_lonely(soup, grid, first + i, cells[i], chains);
    return lonely;
}

bool none_is_close(const tr_soup& soup)
{
    cell_chains chains = {};
    bool apart = chains_init(soup.place_count, &chains);
    const pt_grid grid = grid_of_tol();
    for (std::uint32_t p = 0; p < soup.place_count && apart; p += k_cells_ahead)
        apart = add_lonely_run(soup, grid, p, &chains);
    heap_free(chains.heads);
    heap_free(chains.nexts);
    return apart;
}

bool none_is_crowded(const tr_soup& soup)
{
    const std::size_t size = sizeof(std::uint32_t) * soup.place_count;
    auto* users = static_cast<std::uint32_t*>(heap_alloc(size));
    if (!users) return false;
    std::memset(users, 0, size);
    bool countable = true;
    for (std::size_t i = 0; i < std::size_t{3} * soup.count; ++i)
        countable &= ++users[soup.corners[i]] <= k_most_corners;
    heap_free(users);
    return countable;
}

} // namespace

// The slots are all over a table larger than the cache: each is fetched while others are looked at.
bool soup_add(tr_soup* soup, const float (*corners)[3])
{
    if (soup->ahead_count == k_soup_ahead) soup_finish(soup);
    if (!reserve_tr(soup) || (soup->ahead_count == 0 && !reserve_places(soup))) return false;
    for (int i = 0; i < 3; ++i) {
        const std::uint32_t at = soup->ahead_count++;
        std::memcpy(soup->ahead[at], corners[i], sizeof(float) * 3);
        soup->hashes[at] = hash_of(corners[i]);
        __builtin_prefetch(&soup->slots[soup->hashes[at] & (soup->slot_count - 1)]);
    }
    ++soup->count;
    return true;
}

void soup_finish(tr_soup* soup)
{
    std::uint32_t* const corners = soup->corners + std::size_t{3} * soup->count - soup->ahead_count;
    for (std::uint32_t i = 0; i < soup->ahead_count; ++i)
        corners[i] = place_of(soup->ahead[i], soup->hashes[i], soup);
    soup->ahead_count = 0;
}

void soup_free(tr_soup* soup)
{
    heap_free(soup->corners);
    heap_free(soup->places);
    heap_free(soup->slots);
    *soup = {};
}

bool soup_places_are_apart(const tr_soup& soup)
{
    if (soup.place_count == 0) return true;
    return all_finite(soup) && none_is_crowded(soup) && none_is_close(soup);
}

} // namespace velmora
