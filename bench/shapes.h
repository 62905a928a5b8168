// bench/shapes.h - large closed surfaces, each triangle computed from its index alone.
//
// A model is a shape, a fineness and a seed; nothing is stored for its triangles, so ten million
// cost no memory and may be asked for in any order. All surfaces are closed and wound
// counter-clockwise seen from outside; corners that meet are equal to the last bit.
//
// The numbers are the same on every machine: the random ones come from integers, and the rest
// from + - * / and sqrt in double, narrowed once. Lengths are in millimetres.
#pragma once

#include <cstdint>

namespace velmora::bench {

enum shape_kind : std::int32_t {
    shape_sphere,  ///< a dented ball with rough skin; nothing about it is flat
    shape_plate,   ///< 24 round holes of different sizes; flat faces, narrow triangles
    shape_bracket, ///< an L, extruded and turned in space; six wide faces, straight edges
    shape_town,    ///< small houses, nine of ten in a thousandth of the ground: many components
    shape_flat,    ///< one plate, nearly all of it two planes
    shape_fan,     ///< two vertices share all triangles, half of them each
    shape_count,
};

struct model {
    shape_kind kind;
    std::uint64_t seed;
    std::uint64_t fineness; ///< steps along the shape's measure, at least 1
    std::uint64_t count;    ///< triangles
};

struct triangle {
    float vtx[3][3]; ///< corners in winding order
};

/// The shape of that name, or shape_count.
shape_kind shape_by_name(const char* name);

const char* shape_name(shape_kind kind);

/// The model of this shape whose count of triangles comes nearest to `wanted`.
model make_model(shape_kind kind, std::uint64_t wanted, std::uint64_t seed);

/// Triangle `index`, below m.count, in the shape's natural order: neighbours near each other.
triangle model_triangle(const model& m, std::uint64_t index);

/// A permutation of 0 .. m.count - 1 that depends on the seed: the index of the triangle that
/// stands at `place` when the order of the file is to have nothing to do with the surface.
std::uint64_t shuffled_index(const model& m, std::uint64_t place);

} // namespace velmora::bench
