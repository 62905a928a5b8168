#include "mesh/soup.h"

#include <cstring>

namespace velmora {

namespace {

constexpr std::uint32_t k_first_trs = 1024;
static_assert(k_soup_ahead % 3 == 0 && k_soup_ahead <= k_first_trs);

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

} // namespace velmora
