#include "reduce/last_nrms.h"

#include "mesh/vec.h"

#include <bit>
#include <cmath>

namespace velmora {

namespace {

constexpr std::uint32_t k_plain_fan = 48; ///< up to so many triangles comparing all is quicker
constexpr std::uint32_t k_most_trs = 65537;
constexpr std::uint32_t k_heads = 1u << 17;

// Finite normals lie in the cells of a grid that is twice merge_tol wide, so what equals a normal
// lies in its own cell or one that touches it, roundings included. Where a normal is so large that
// the number of its cell has no exact neighbour, floats lie further apart than a cell is wide, and
// nothing but the same normal equals it. Each cell is a chain, the latest entry first: of a crowd
// the first look mostly ends the search.
struct nrm_grid {
    double width;
    std::uint32_t mask;
    std::uint32_t heads[k_heads];   // places, one-based
    std::uint32_t next[k_most_trs]; // of each place, one-based
    std::uint32_t odd[k_most_trs];  // places of normals that are not finite, which equal at large
    std::uint32_t odd_count;
};

// Too large for the stack; one fan is looked at at a time.
nrm_grid grid;

const float* nrm_at(const vtx_fan& fan, std::uint32_t place)
{
    return rec(fan.first[place]).nrm;
}

bool is_finite(const float* nrm)
{
    return std::isfinite(nrm[0]) && std::isfinite(nrm[1]) && std::isfinite(nrm[2]);
}

struct cell {
    double at[3];
};

cell cell_of(const float* nrm)
{
    cell c;
    for (int i = 0; i < 3; ++i)
        c.at[i] = std::floor(static_cast<double>(nrm[i]) / grid.width);
    return c;
}

// Zero has one pattern of bits here: -0.0 + 0.0 is 0.0.
std::uint32_t* head_of(const cell& c)
{
    std::uint64_t h = 0;
    for (const double at : c.at)
        h = ((h ^ (h >> 29)) + std::bit_cast<std::uint64_t>(at + 0.0)) * 0x9E3779B97F4A7C15u;
    return &grid.heads[(h >> 32) & grid.mask];
}

void grid_start(std::uint32_t count)
{
    std::uint32_t size = 64;
    while (size < count && size < k_heads)
        size *= 2;
    for (std::uint32_t i = 0; i < size; ++i)
        grid.heads[i] = 0;
    grid.mask = size - 1;
    grid.odd_count = 0;
    grid.width = 2.0 * static_cast<double>(merge_tol);
}

bool chain_has_equal(const vtx_fan& fan, std::uint32_t head, const float* nrm)
{
    for (std::uint32_t link = head; link != 0; link = grid.next[link - 1])
        if (pts_equal(nrm, nrm_at(fan, link - 1))) return true;
    return false;
}

bool grid_has_equal(const vtx_fan& fan, const float* nrm)
{
    const cell mid = cell_of(nrm);
    if (chain_has_equal(fan, *head_of(mid), nrm)) return true;
    constexpr double k_steps[3] = {-1.0, 0.0, 1.0};
    for (const double x : k_steps) {
        for (const double y : k_steps) {
            for (const double z : k_steps) {
                const cell c = {{mid.at[0] + x, mid.at[1] + y, mid.at[2] + z}};
                if (chain_has_equal(fan, *head_of(c), nrm)) return true;
            }
        }
    }
    return false;
}

bool odd_has_equal(const vtx_fan& fan, const float* nrm)
{
    for (std::uint32_t i = grid.odd_count; i-- > 0;)
        if (pts_equal(nrm, nrm_at(fan, grid.odd[i]))) return true;
    return false;
}

bool has_equal_after(const vtx_fan& fan, std::uint32_t place)
{
    const float* nrm = nrm_at(fan, place);
    for (std::uint32_t k = place + 1; k < fan.count; ++k)
        if (pts_equal(nrm, nrm_at(fan, k))) return true;
    return false;
}

// No two normals of a fan of ordinary size are equal along the first axis. On a curved surface that
// is the rule, and found without a branch for each pair; on a flat one the second normal tells.
bool all_apart_on_x(const vtx_fan& fan)
{
    float x[k_plain_fan];
    for (std::uint32_t k = 0; k < fan.count; ++k) {
        x[k] = nrm_at(fan, k)[0];
        unsigned near = 0;
        for (std::uint32_t i = 0; i < k; ++i)
            near |= !(std::fabs(x[i] - x[k]) > merge_tol);
        if (near) return false;
    }
    return true;
}

void grid_add(const vtx_fan& fan, std::uint32_t place)
{
    const float* nrm = nrm_at(fan, place);
    if (!is_finite(nrm)) {
        grid.odd[grid.odd_count++] = place;
        return;
    }
    std::uint32_t* head = head_of(cell_of(nrm));
    grid.next[place] = *head;
    *head = place + 1;
}

} // namespace

void mark_last_nrms_plainly(const vtx_fan& fan, bool* last)
{
    for (std::uint32_t k = 0; k < fan.count; ++k)
        last[k] = !has_equal_after(fan, k);
}

void mark_last_nrms(const vtx_fan& fan, bool* last)
{
    if (fan.count <= k_plain_fan && all_apart_on_x(fan)) {
        for (std::uint32_t k = 0; k < fan.count; ++k)
            last[k] = true;
        return;
    }
    if (fan.count <= k_plain_fan || fan.count > k_most_trs || !(merge_tol > 0.0f)) {
        mark_last_nrms_plainly(fan, last);
        return;
    }
    grid_start(fan.count);
    for (std::uint32_t k = fan.count; k-- > 0;) {
        const float* nrm = nrm_at(fan, k);
        if (is_finite(nrm)) {
            last[k] = !odd_has_equal(fan, nrm) && !grid_has_equal(fan, nrm);
        } else {
            last[k] = !has_equal_after(fan, k);
        }
        grid_add(fan, k);
    }
}

} // namespace velmora
