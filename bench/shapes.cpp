#include "shapes.h"

#include <cassert>
#include <cmath>
#include <cstring>

namespace velmora::bench {

namespace {

struct vec {
    double x, y, z;
};

/// Four corners in winding order; cut along one of its diagonals.
struct quad {
    vec at[4];
};

constexpr const char* k_shape_names[shape_count] = {"sphere", "plate", "bracket",
                                                    "town",   "flat",  "fan"};

constexpr double k_sphere_radius = 50.0;
constexpr double k_sphere_noise = 0.1; // of an edge

constexpr std::uint64_t k_plate_holes_x = 6;
constexpr std::uint64_t k_plate_holes_y = 4;
constexpr double k_plate_tile = 20.0; // mm, one hole in each tile
constexpr double k_plate_depth = 5.0;

constexpr double k_bracket_unit = 10.0; // mm, the thickness of its arms
constexpr std::int64_t k_bracket_width = 6;
constexpr std::int64_t k_bracket_height = 4;
constexpr std::int64_t k_bracket_depth = 3;

constexpr std::uint64_t k_house_trs = 64;
constexpr double k_town_side = 22.0; // mm: 484 of the 511000 square millimetres
constexpr double k_land_width = 1000.0;
constexpr double k_land_near = 20.0;
constexpr double k_land_far = 500.0;

constexpr double k_flat_side = 1000.0;
constexpr double k_flat_depth = 2.0;
constexpr double k_flat_jitter = 0.3; // of a cell

constexpr double k_fan_radius = 100.0;
constexpr double k_fan_height = 50.0;

// The finaliser of splitmix64: Steele, Lea and Flood, Fast splittable pseudorandom number
// generators, 2014.
std::uint64_t mix(std::uint64_t x)
{
    x += 0x9e3779b97f4a7c15u;
    x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9u;
    x = (x ^ (x >> 27)) * 0x94d049bb133111ebu;
    return x ^ (x >> 31);
}

std::uint64_t hash_of(const model& m, std::uint64_t a, std::uint64_t b = 0, std::uint64_t c = 0)
{
    return mix(mix(mix(mix(m.seed) ^ a) ^ b) ^ c);
}

/// 0 <= result < 1, in steps of 2^-53.
double fraction_of(std::uint64_t hash)
{
    return static_cast<double>(hash >> 11) * (1.0 / 9007199254740992.0);
}

double real(std::uint64_t n)
{
    return static_cast<double>(n);
}

double real(std::int64_t n)
{
    return static_cast<double>(n);
}

/// A point of the unit circle, for 0 <= t < 4 one turn: an exact quarter for each whole number,
/// and between them the rational parametrisation, which needs no library and is nearly even.
void circle_point(double t, double* x, double* y)
{
    const int quarter = static_cast<int>(t);
    const double u = t - quarter;
    const double c = (1.0 - u * u) / (1.0 + u * u);
    const double s = 2.0 * u / (1.0 + u * u);
    const double turned[4][2] = {{c, s}, {-s, c}, {-c, -s}, {s, -c}};
    *x = turned[quarter & 3][0];
    *y = turned[quarter & 3][1];
}

std::uint64_t square_side(std::uint64_t cells)
{
    std::uint64_t side = 1;
    while (side * side < cells)
        ++side;
    return side;
}

// --- Surfaces of flat patches on a lattice of whole numbers: sphere, bracket, flat ---

struct lattice_pt {
    std::int64_t at[3];
};

/// A rectangle of quads on the lattice. Its outside is where axis u x axis v points.
struct patch {
    lattice_pt origin;
    int u, v;            ///< axes, 0 to 2
    std::int64_t nu, nv; ///< quads along them
};

constexpr int k_max_patches = 10;

struct patch_list {
    patch of[k_max_patches];
    int count;
};

patch_list box_patches(std::int64_t a, std::int64_t b, std::int64_t c)
{
    return {{{{{0, 0, c}}, 0, 1, a, b},
             {{{0, 0, 0}}, 1, 0, b, a},
             {{{0, 0, 0}}, 0, 2, a, c},
             {{{0, b, 0}}, 2, 0, c, a},
             {{{a, 0, 0}}, 1, 2, b, c},
             {{{0, 0, 0}}, 2, 1, c, b}},
            6};
}

//   h  +---+
//      |   |
//      |   |           arms one unit thick, the fineness t being the unit;
//   t  |   +-------+   d deep along z
//      |           |
//   0  +-----------+
//      0   t       w
patch_list bracket_patches(std::int64_t t)
{
    const std::int64_t w = k_bracket_width * t;
    const std::int64_t h = k_bracket_height * t;
    const std::int64_t d = k_bracket_depth * t;
    return {{{{{0, 0, d}}, 0, 1, w, t},
             {{{0, t, d}}, 0, 1, t, h - t},
             {{{0, 0, 0}}, 1, 0, t, w},
             {{{0, t, 0}}, 1, 0, h - t, t},
             {{{0, 0, 0}}, 0, 2, w, d},
             {{{w, 0, 0}}, 1, 2, t, d},
             {{{t, t, 0}}, 2, 0, d, w - t},
             {{{t, t, 0}}, 1, 2, h - t, d},
             {{{0, h, 0}}, 2, 0, d, t},
             {{{0, 0, 0}}, 2, 1, d, h}},
            10};
}

patch_list patches_of(shape_kind kind, std::uint64_t fineness)
{
    const std::int64_t n = static_cast<std::int64_t>(fineness);
    if (kind == shape_sphere) return box_patches(n, n, n);
    if (kind == shape_bracket) return bracket_patches(n);
    return box_patches(n, n, 1);
}

std::uint64_t lattice_hash(const model& m, const lattice_pt& p)
{
    return hash_of(m, static_cast<std::uint64_t>(p.at[0]), static_cast<std::uint64_t>(p.at[1]),
                   static_cast<std::uint64_t>(p.at[2]));
}

vec sphere_pt(const model& m, const lattice_pt& p)
{
    const double n = real(m.fineness);
    const double x = 2.0 * real(p.at[0]) - n;
    const double y = 2.0 * real(p.at[1]) - n;
    const double z = 2.0 * real(p.at[2]) - n;
    const double len = std::sqrt(x * x + y * y + z * z);
    const vec u = {x / len, y / len, z / len};
    const double dents = 1.0 + 0.2 * (u.x * u.y) + 0.1 * (u.z * u.z * u.x);
    const double edge = 1.5 * k_sphere_radius / n;
    const double noise = (2.0 * fraction_of(lattice_hash(m, p)) - 1.0) * k_sphere_noise * edge;
    const double r = k_sphere_radius * dents + noise;
    return {u.x * r, u.y * r, u.z * r};
}

// Turned by the quaternion 3 + i + 2j + k, so that no face lies along an axis.
vec bracket_pt(const model& m, const lattice_pt& p)
{
    const double step = k_bracket_unit / real(m.fineness) / 15.0;
    const double x = real(p.at[0]) * step;
    const double y = real(p.at[1]) * step;
    const double z = real(p.at[2]) * step;
    return {5.0 * x - 2.0 * y + 14.0 * z, 10.0 * x + 11.0 * y - 2.0 * z,
            -10.0 * x + 10.0 * y + 5.0 * z};
}

vec flat_pt(const model& m, const lattice_pt& p)
{
    const std::int64_t n = static_cast<std::int64_t>(m.fineness);
    const double step = k_flat_side / real(m.fineness);
    double x = real(p.at[0]);
    double y = real(p.at[1]);
    const bool inside = p.at[0] > 0 && p.at[0] < n && p.at[1] > 0 && p.at[1] < n;
    if (inside) {
        const std::uint64_t hash = lattice_hash(m, p);
        x += (2.0 * fraction_of(hash) - 1.0) * k_flat_jitter;
        y += (2.0 * fraction_of(mix(hash)) - 1.0) * k_flat_jitter;
    }
    return {x * step, y * step, real(p.at[2]) * k_flat_depth};
}

vec lattice_vec(const model& m, const lattice_pt& p)
{
    if (m.kind == shape_sphere) return sphere_pt(m, p);
    if (m.kind == shape_bracket) return bracket_pt(m, p);
    return flat_pt(m, p);
}

std::uint64_t patch_quads(const patch_list& patches)
{
    std::uint64_t quads = 0;
    for (int i = 0; i < patches.count; ++i)
        quads += static_cast<std::uint64_t>(patches.of[i].nu * patches.of[i].nv);
    return quads;
}

quad patch_quad(const model& m, std::uint64_t index)
{
    const patch_list patches = patches_of(m.kind, m.fineness);
    const patch* p = patches.of;
    std::int64_t left = static_cast<std::int64_t>(index);
    for (; left >= p->nu * p->nv; ++p)
        left -= p->nu * p->nv;
    assert(p->nu > 0);
    const std::int64_t column = left % p->nu;
    const std::int64_t row = left / p->nu;

    constexpr int k_steps[4][2] = {{0, 0}, {1, 0}, {1, 1}, {0, 1}};
    quad q;
    for (int i = 0; i < 4; ++i) {
        lattice_pt pt = p->origin;
        pt.at[p->u] += column + k_steps[i][0];
        pt.at[p->v] += row + k_steps[i][1];
        q.at[i] = lattice_vec(m, pt);
    }
    return q;
}

// --- The plate: tiles with a hole in each, and a rim round all of them ---

/// The counts that follow from the fineness, which is the number of segments on a tile's side.
struct plate_counts {
    std::uint64_t around;     ///< segments round a hole, and round its tile
    std::uint64_t rings;      ///< rings of quads between the hole and the tile's border
    std::uint64_t layers;     ///< quads through the thickness
    std::uint64_t tile_quads; ///< of one tile: top, bottom and the wall of its hole
    std::uint64_t tiles;
    std::uint64_t rim_quads;
};

plate_counts plate_counts_of(std::uint64_t fineness)
{
    plate_counts c;
    c.around = 4 * fineness;
    c.rings = (fineness + 1) / 2;
    c.layers = (fineness + 7) / 8;
    c.tile_quads = c.around * (2 * c.rings + c.layers);
    c.tiles = k_plate_holes_x * k_plate_holes_y;
    c.rim_quads = 2 * (k_plate_holes_x + k_plate_holes_y) * fineness * c.layers;
    return c;
}

/// A point of the border of the square -n .. n, counter-clockwise from the lower left corner.
void border_pt(std::uint64_t fineness, std::uint64_t angle, std::int64_t* x, std::int64_t* y)
{
    assert(fineness > 0);
    const std::int64_t n = static_cast<std::int64_t>(fineness);
    const std::int64_t side = static_cast<std::int64_t>(angle) / n % 4;
    const std::int64_t along = 2 * (static_cast<std::int64_t>(angle) % n) - n;
    const std::int64_t xs[4] = {along, n, -along, -n};
    const std::int64_t ys[4] = {-n, along, n, -along};
    *x = xs[side];
    *y = ys[side];
}

/// The point of `tile` on `ring` (0 the hole, c.rings the border) at height `layer`. Points of a
/// border are made from whole numbers that both tiles agree on.
vec plate_pt(const model& m, const plate_counts& c, std::uint64_t tile, std::uint64_t ring,
             std::uint64_t angle, std::uint64_t layer)
{
    const double n = real(m.fineness);
    const double half_step = k_plate_tile / (2.0 * n);
    const double z = k_plate_depth * real(layer) / real(c.layers);
    const double mid_x = real(2 * (tile % k_plate_holes_x) + 1) * n;
    const double mid_y = real(2 * (tile / k_plate_holes_x) + 1) * n;

    std::int64_t border_x, border_y;
    border_pt(m.fineness, angle, &border_x, &border_y);
    const double bx = real(border_x);
    const double by = real(border_y);
    if (ring == c.rings) return {(mid_x + bx) * half_step, (mid_y + by) * half_step, z};

    const double radius = n * (0.3 + 0.4 * fraction_of(hash_of(m, tile)));
    const double to_hole = radius / std::sqrt(bx * bx + by * by);
    const double share = to_hole + (1.0 - to_hole) * (real(ring) / real(c.rings));
    return {(mid_x + bx * share) * half_step, (mid_y + by * share) * half_step, z};
}

quad plate_face_quad(const model& m, const plate_counts& c, std::uint64_t tile, std::uint64_t ring,
                     std::uint64_t angle, bool top)
{
    const std::uint64_t layer = top ? c.layers : 0;
    const std::uint64_t next = (angle + 1) % c.around;
    const vec a = plate_pt(m, c, tile, ring, angle, layer);
    const vec b = plate_pt(m, c, tile, ring + 1, angle, layer);
    const vec d = plate_pt(m, c, tile, ring, next, layer);
    const vec e = plate_pt(m, c, tile, ring + 1, next, layer);
    if (top) return {{a, b, e, d}};
    return {{a, d, e, b}};
}

/// A quad of an upright wall. The material lies outside the hole (ring 0), inside the rim.
quad plate_wall_quad(const model& m, const plate_counts& c, std::uint64_t tile, std::uint64_t ring,
                     std::uint64_t angle, std::uint64_t layer)
{
    const std::uint64_t next = (angle + 1) % c.around;
    const std::uint64_t from = ring == 0 ? angle : next;
    const std::uint64_t to = ring == 0 ? next : angle;
    return {{plate_pt(m, c, tile, ring, from, layer + 1), plate_pt(m, c, tile, ring, to, layer + 1),
             plate_pt(m, c, tile, ring, to, layer), plate_pt(m, c, tile, ring, from, layer)}};
}

quad plate_rim_quad(const model& m, const plate_counts& c, std::uint64_t index)
{
    const std::uint64_t layer = index % c.layers;
    const std::uint64_t along = index / c.layers;
    const std::uint64_t segment = along % m.fineness;
    std::uint64_t stretch = along / m.fineness; // tile sides, counted round the plate
    constexpr std::uint64_t k_per_side[4] = {k_plate_holes_x, k_plate_holes_y, k_plate_holes_x,
                                             k_plate_holes_y};
    std::uint64_t side = 0;
    for (; stretch >= k_per_side[side]; ++side)
        stretch -= k_per_side[side];
    const std::uint64_t tiles[4] = {stretch, (stretch + 1) * k_plate_holes_x - 1,
                                    (k_plate_holes_y - 1) * k_plate_holes_x + stretch,
                                    stretch * k_plate_holes_x};
    return plate_wall_quad(m, c, tiles[side], c.rings, side * m.fineness + segment, layer);
}

quad plate_quad(const model& m, std::uint64_t index)
{
    const plate_counts c = plate_counts_of(m.fineness);
    const std::uint64_t tile = index / c.tile_quads;
    if (tile >= c.tiles) return plate_rim_quad(m, c, index - c.tiles * c.tile_quads);

    const std::uint64_t inside = index % c.tile_quads;
    const std::uint64_t angle = inside % c.around;
    const std::uint64_t row = inside / c.around;
    if (row < c.rings) return plate_face_quad(m, c, tile, row, angle, true);
    if (row < 2 * c.rings) return plate_face_quad(m, c, tile, row - c.rings, angle, false);
    return plate_wall_quad(m, c, tile, 0, angle, row - 2 * c.rings);
}

// --- The town: closed houses with a pitched roof, each triangle of them cut in four ---

struct house {
    vec at[10];
};

//      8 ------- 9
//     / \       / \      x along the ridge; 0 1 5 4 is the front
//    7   \     6   \     .
//        4 ------- 5
//    3   |     2   |
//        0 ------- 1
constexpr std::uint8_t k_house_faces[16][3] = {
    {0, 2, 1}, {0, 3, 2}, {0, 1, 5}, {0, 5, 4}, {2, 3, 7}, {2, 7, 6}, {3, 0, 4}, {3, 4, 7},
    {7, 4, 8}, {1, 2, 6}, {1, 6, 5}, {5, 6, 9}, {4, 5, 9}, {4, 9, 8}, {6, 7, 8}, {6, 8, 9}};

std::uint64_t in_town(std::uint64_t houses)
{
    return houses - (houses + 9) / 10; // every tenth, the first included, stands in the country
}

/// The width of a lot in the town: the largest house has 0.99 of it as its diagonal.
double town_lot(const model& m)
{
    const std::uint64_t lots = in_town(m.fineness);
    return k_town_side / real(square_side(lots));
}

void house_place(const model& m, std::uint64_t nth, double* x, double* y)
{
    if (nth % 10 != 0) {
        const double lot = town_lot(m);
        const std::uint64_t side = square_side(in_town(m.fineness));
        const std::uint64_t here = in_town(nth);
        *x = (real(here % side) + 0.5) * lot - k_town_side / 2.0;
        *y = (real(here / side) + 0.5) * lot - k_town_side / 2.0;
        return;
    }
    const std::uint64_t side = square_side((m.fineness + 9) / 10);
    const std::uint64_t here = nth / 10;
    *x = (real(here % side) + 0.5) * (k_land_width / real(side)) - k_land_width / 2.0;
    *y = (real(here / side) + 0.5) * ((k_land_far - k_land_near) / real(side)) + k_land_near;
}

house make_house(const model& m, std::uint64_t nth)
{
    const double lot = town_lot(m);
    const double half_x = lot * (0.2 + 0.15 * fraction_of(hash_of(m, nth, 1)));
    const double half_y = lot * (0.2 + 0.15 * fraction_of(hash_of(m, nth, 2)));
    const double wall = lot * (0.2 + 0.3 * fraction_of(hash_of(m, nth, 3)));
    const double ridge = wall + half_y * (0.5 + fraction_of(hash_of(m, nth, 4)));
    double mid_x, mid_y, c, s;
    house_place(m, nth, &mid_x, &mid_y);
    circle_point(4.0 * fraction_of(hash_of(m, nth, 5)), &c, &s);

    house h;
    for (int i = 0; i < 10; ++i) {
        const bool on_ridge = i >= 8;
        const bool right = on_ridge ? i == 9 : i % 4 == 1 || i % 4 == 2;
        const double x = right ? half_x : -half_x;
        const double y = on_ridge ? 0.0 : (i % 4 < 2 ? -half_y : half_y);
        const double z = on_ridge ? ridge : (i < 4 ? 0.0 : wall);
        h.at[i] = {mid_x + (c * x - s * y), mid_y + (s * x + c * y), z};
    }
    return h;
}

vec middle(const vec& a, const vec& b)
{
    return {(a.x + b.x) * 0.5, (a.y + b.y) * 0.5, (a.z + b.z) * 0.5};
}

void town_triangle(const model& m, std::uint64_t index, vec out[3])
{
    const house h = make_house(m, index / k_house_trs);
    const std::uint64_t part = index % k_house_trs;
    const std::uint8_t* face = k_house_faces[part / 4];
    const vec corner[3] = {h.at[face[0]], h.at[face[1]], h.at[face[2]]};
    const vec half[3] = {middle(corner[0], corner[1]), middle(corner[1], corner[2]),
                         middle(corner[2], corner[0])};
    const std::uint64_t piece = part % 4;
    for (std::uint64_t i = 0; i < 3; ++i)
        out[i] = half[i];
    if (piece == 3) return; // the middle one
    out[0] = corner[piece];
    out[1] = half[piece];
    out[2] = half[(piece + 2) % 3];
}

// --- The fan: a tip above and one below a ring ---

vec fan_rim(const model& m, std::uint64_t nth)
{
    const std::uint64_t around = 4 * m.fineness;
    const std::uint64_t here = nth % around;
    double x, y;
    circle_point(real(here) / real(m.fineness), &x, &y);
    const double z = 2.0 * fraction_of(hash_of(m, here)) - 1.0;
    return {x * k_fan_radius, y * k_fan_radius, z};
}

void fan_triangle(const model& m, std::uint64_t index, vec out[3])
{
    const std::uint64_t nth = index / 2;
    const bool top = index % 2 == 0;
    out[0] = {0.0, 0.0, top ? k_fan_height : -k_fan_height};
    out[1] = fan_rim(m, top ? nth : nth + 1);
    out[2] = fan_rim(m, top ? nth + 1 : nth);
}

// --- All of them ---

std::uint64_t count_of(shape_kind kind, std::uint64_t fineness)
{
    if (kind == shape_town) return fineness * k_house_trs;
    if (kind == shape_fan) return fineness * 8;
    if (kind == shape_plate) {
        const plate_counts c = plate_counts_of(fineness);
        return 2 * (c.tiles * c.tile_quads + c.rim_quads);
    }
    return 2 * patch_quads(patches_of(kind, fineness));
}

// The diagonal is a matter of chance, so that the valences differ.
void cut_quad(const model& m, const quad& q, std::uint64_t index, vec out[3])
{
    constexpr std::uint8_t k_cuts[2][2][3] = {{{0, 1, 2}, {0, 2, 3}}, {{0, 1, 3}, {1, 2, 3}}};
    const std::uint64_t cut = hash_of(m, index / 2, 7) & 1u;
    for (int i = 0; i < 3; ++i)
        out[i] = q.at[k_cuts[cut][index % 2][i]];
}

} // namespace

shape_kind shape_by_name(const char* name)
{
    int kind = 0;
    while (kind < shape_count && std::strcmp(name, k_shape_names[kind]) != 0)
        ++kind;
    return static_cast<shape_kind>(kind);
}

const char* shape_name(shape_kind kind)
{
    return k_shape_names[kind];
}

model make_model(shape_kind kind, std::uint64_t wanted, std::uint64_t seed)
{
    std::uint64_t above = 2; // a town of one house would have no centre
    while (count_of(kind, above) < wanted)
        above *= 2;
    std::uint64_t below = 2;
    while (above - below > 1) {
        const std::uint64_t mid = below + (above - below) / 2;
        (count_of(kind, mid) < wanted ? below : above) = mid;
    }
    const std::uint64_t over = count_of(kind, above);
    const std::uint64_t under = count_of(kind, below);
    const bool take_above = under < wanted && (over <= wanted || over - wanted < wanted - under);
    const std::uint64_t fineness = take_above ? above : below;
    return {kind, seed, fineness, count_of(kind, fineness)};
}

triangle model_triangle(const model& m, std::uint64_t index)
{
    vec corners[3];
    if (m.kind == shape_town)
        town_triangle(m, index, corners);
    else if (m.kind == shape_fan)
        fan_triangle(m, index, corners);
    else if (m.kind == shape_plate)
        cut_quad(m, plate_quad(m, index / 2), index, corners);
    else
        cut_quad(m, patch_quad(m, index / 2), index, corners);

    triangle tr;
    for (int i = 0; i < 3; ++i) {
        tr.vtx[i][0] = static_cast<float>(corners[i].x);
        tr.vtx[i][1] = static_cast<float>(corners[i].y);
        tr.vtx[i][2] = static_cast<float>(corners[i].z);
    }
    return tr;
}

// A Feistel network over the next power of four, walked until it lands inside the count: a
// permutation that needs no table.
std::uint64_t shuffled_index(const model& m, std::uint64_t place)
{
    unsigned half_bits = 1;
    while ((std::uint64_t{1} << (2 * half_bits)) < m.count)
        ++half_bits;
    const std::uint64_t mask = (std::uint64_t{1} << half_bits) - 1;

    std::uint64_t index = place;
    do {
        std::uint64_t low = index & mask;
        std::uint64_t high = index >> half_bits;
        for (std::uint64_t round = 0; round < 4; ++round) {
            const std::uint64_t kept = low;
            low = high ^ (hash_of(m, low, 11, round) & mask);
            high = kept;
        }
        index = high << half_bits | low;
    } while (index >= m.count);
    return index;
}

} // namespace velmora::bench
