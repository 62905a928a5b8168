#include "hostile.h"

#include <cmath>
#include <cstring>
#include <limits>

namespace velmora::bench {

namespace {

struct pt {
    double x, y, z;
};

constexpr const char* k_names[hostile_count] = {
    "point", "line",  "copies",  "book",   "umbrella", "flower", "star", "saw",
    "soup",  "crowd", "moebius", "shells", "huge",     "tiny",   "wide", "infinite"};

constexpr std::uint64_t k_lattice = 12;       // points along each side of the soup
constexpr std::uint64_t k_band_quads = 31;    // of a Moebius band
constexpr std::uint64_t k_infinite_each = 97; // one triangle of so many has a bad corner

std::uint64_t mix(std::uint64_t x)
{
    x += 0x9e3779b97f4a7c15u;
    x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9u;
    x = (x ^ (x >> 27)) * 0x94d049bb133111ebu;
    return x ^ (x >> 31);
}

std::uint64_t hash_of(std::uint64_t seed, std::uint64_t a, std::uint64_t b)
{
    return mix(mix(mix(seed) ^ a) ^ b);
}

/// 0 <= result < 1.
double fraction_of(std::uint64_t hash)
{
    return static_cast<double>(hash >> 11) * (1.0 / 9007199254740992.0);
}

double real(std::uint64_t n)
{
    return static_cast<double>(n);
}

/// A point of the unit circle for 0 <= t <= 1 one turn, without a library's sine.
pt circle_pt(double t, double radius)
{
    const double quarter = std::floor(4.0 * t);
    const double u = 4.0 * t - quarter;
    const double c = (1.0 - u * u) / (1.0 + u * u);
    const double s = 2.0 * u / (1.0 + u * u);
    const double turned[4][2] = {{c, s}, {-s, c}, {-c, -s}, {s, -c}};
    const double* p = turned[static_cast<int>(quarter) & 3];
    return {p[0] * radius, p[1] * radius, 0.0};
}

/// Place `i` of `n` on a rim that goes up and down, so that no two normals are alike.
pt rim_pt(std::uint64_t seed, std::uint64_t i, std::uint64_t n)
{
    pt p = circle_pt(real(i) / real(n), 100.0);
    p.z = 5.0 * fraction_of(hash_of(seed, i, 0));
    return p;
}

void on_one_line(std::uint64_t seed, std::uint64_t i, pt* out)
{
    for (std::uint64_t k = 0; k < 3; ++k)
        out[k] = {100.0 * fraction_of(hash_of(seed, i, k)), 0.0, 0.0};
}

void page(std::uint64_t seed, std::uint64_t i, std::uint64_t n, pt* out)
{
    const pt rim = rim_pt(seed, i, n);
    out[0] = {0.0, 0.0, 0.0};
    out[1] = {0.0, 0.0, 10.0};
    out[2] = {rim.x, rim.y, rim.z};
}

// With `gap`, each second or third sector is left out.
void sector(std::uint64_t seed, std::uint64_t i, std::uint64_t n, pt* out)
{
    out[0] = {0.0, 0.0, 20.0};
    out[1] = rim_pt(seed, i, n);
    out[2] = rim_pt(seed, i + 1, n);
}

void tooth(std::uint64_t i, pt* out)
{
    const double x = real(i / 2);
    const bool tip = i % 2 != 0;
    out[0] = {x, 0.0, 0.0};
    out[1] = {x + 1.0, 0.0, 0.0};
    out[2] = {x + 0.5, tip ? -3.0 : 3.0, 0.0};
}

void in_soup(std::uint64_t seed, std::uint64_t i, pt* out)
{
    for (std::uint64_t k = 0; k < 3; ++k) {
        const std::uint64_t hash = hash_of(seed, i, k);
        out[k] = {real(hash % k_lattice), real((hash >> 20) % k_lattice),
                  real((hash >> 40) % k_lattice)};
    }
}

void in_crowd(std::uint64_t seed, std::uint64_t i, pt* out)
{
    const double room = i % 100 == 0 ? 1000.0 : 1.0;
    const pt mid = {room * fraction_of(hash_of(seed, i, 3)),
                    room * fraction_of(hash_of(seed, i, 4)),
                    room * fraction_of(hash_of(seed, i, 5))};
    for (std::uint64_t k = 0; k < 3; ++k) {
        const std::uint64_t hash = hash_of(seed, i, k);
        out[k] = {mid.x + 0.3 * fraction_of(hash), mid.y + 0.3 * fraction_of(mix(hash)),
                  mid.z + 0.3 * fraction_of(mix(mix(hash)))};
    }
}

/// A point of the band: half a turn on the way round.
pt band_pt(std::uint64_t band, std::uint64_t at, bool upper)
{
    const double t = real(at) / real(k_band_quads);
    const pt mid = circle_pt(at % k_band_quads ? t : 0.0, 10.0);
    // Half a turn, by the first half of the circle.
    const pt turn = circle_pt(t / 2.0, 1.0);
    const double side = upper ? 3.0 : -3.0;
    const double out = 1.0 + side * turn.x / 10.0;
    return {mid.x * out + 40.0 * real(band), mid.y * out, side * turn.y};
}

void in_band(std::uint64_t i, pt* out)
{
    const std::uint64_t band = i / (2 * k_band_quads);
    const std::uint64_t at = i / 2 % k_band_quads;
    const bool last = at + 1 == k_band_quads; // joined to the first, upside down
    const std::uint64_t next = last ? 0 : at + 1;
    const pt low = band_pt(band, at, false);
    const pt high = band_pt(band, at, true);
    const pt next_low = band_pt(band, next, last);
    const pt next_high = band_pt(band, next, !last);
    out[0] = low;
    out[1] = i % 2 ? next_high : next_low;
    out[2] = i % 2 ? high : next_high;
}

void in_shell(std::uint64_t i, pt* out)
{
    const double r = 1.0 + 0.01 * real(i / 8);
    const std::uint64_t part = i % 8;
    const double sx = part & 1 ? r : -r;
    const double sy = part & 2 ? r : -r;
    const double sz = part & 4 ? r : -r;
    const bool even = (part & 1) + (part >> 1 & 1) + (part >> 2 & 1) != 0 &&
                      ((part & 1) ^ (part >> 1 & 1) ^ (part >> 2 & 1)) != 0;
    out[0] = {sx, 0.0, 0.0};
    out[1] = even ? pt{0.0, sy, 0.0} : pt{0.0, 0.0, sz};
    out[2] = even ? pt{0.0, 0.0, sz} : pt{0.0, sy, 0.0};
}

void anywhere(std::uint64_t seed, std::uint64_t i, pt* out)
{
    for (std::uint64_t k = 0; k < 3; ++k) {
        double at[3];
        for (std::uint64_t a = 0; a < 3; ++a) {
            const std::uint64_t hash = hash_of(seed, 3 * i + k, a);
            const double power = 252.0 * fraction_of(hash) - 126.0; // of two
            at[a] = std::ldexp(hash & 1 ? 1.0 : -1.0, static_cast<int>(power));
        }
        out[k] = {at[0], at[1], at[2]};
    }
}

void scale(triangle* tr, double by)
{
    for (auto& corner : tr->vtx)
        for (float& c : corner)
            c = static_cast<float>(static_cast<double>(c) * by);
}

void spoil(std::uint64_t seed, std::uint64_t i, triangle* tr)
{
    if (i % k_infinite_each != 0) return;
    const std::uint64_t hash = hash_of(seed, i, 0);
    constexpr float k_inf = std::numeric_limits<float>::infinity();
    tr->vtx[hash % 3][(hash >> 8) % 3] = (hash >> 16) % 2 ? k_inf : -k_inf;
}

triangle ball_triangle(hostile_kind kind, std::uint64_t count, std::uint64_t seed,
                       std::uint64_t index)
{
    const model ball = make_model(shape_sphere, count, seed);
    triangle tr = model_triangle(ball, index % ball.count);
    if (kind == hostile_huge) scale(&tr, 1e36);
    if (kind == hostile_tiny) scale(&tr, 1e-40);
    if (kind == hostile_infinite) spoil(seed, index, &tr);
    return tr;
}

void corners_of(hostile_kind kind, std::uint64_t count, std::uint64_t seed, std::uint64_t i,
                pt* out)
{
    switch (kind) {
    case hostile_line:
        return on_one_line(seed, i, out);
    case hostile_copies:
        return sector(seed, 0, 8, out);
    case hostile_book:
        return page(seed, i, count, out);
    case hostile_umbrella:
        return sector(seed, i, count + 1, out);
    case hostile_flower:
        return sector(seed, i / 2 * 3 + i % 2, count / 2 * 3 + 3, out);
    case hostile_star:
        return sector(seed, 2 * i, 2 * count, out);
    case hostile_saw:
        return tooth(i, out);
    case hostile_soup:
        return in_soup(seed, i, out);
    case hostile_crowd:
        return in_crowd(seed, i, out);
    case hostile_moebius:
        return in_band(i, out);
    case hostile_shells:
        return in_shell(i, out);
    case hostile_wide:
        return anywhere(seed, i, out);
    default:
        return; // a point
    }
}

} // namespace

hostile_kind hostile_by_name(const char* name)
{
    int kind = 0;
    while (kind < hostile_count && std::strcmp(name, k_names[kind]) != 0)
        ++kind;
    return static_cast<hostile_kind>(kind);
}

const char* hostile_name(hostile_kind kind)
{
    return k_names[kind];
}

triangle hostile_triangle(hostile_kind kind, std::uint64_t count, std::uint64_t seed,
                          std::uint64_t index)
{
    if (kind == hostile_huge || kind == hostile_tiny || kind == hostile_infinite)
        return ball_triangle(kind, count, seed, index);
    pt corners[3] = {};
    corners_of(kind, count, seed, index, corners);
    triangle tr;
    for (int k = 0; k < 3; ++k) {
        tr.vtx[k][0] = static_cast<float>(corners[k].x);
        tr.vtx[k][1] = static_cast<float>(corners[k].y);
        tr.vtx[k][2] = static_cast<float>(corners[k].z);
    }
    return tr;
}

} // namespace velmora::bench
