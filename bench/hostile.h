// bench/hostile.h - models that nobody would draw: where a method that is quick on surfaces could
// take for ever, lose count or meet numbers that are none.
//
// As with shapes.h, a triangle is computed from its index alone and is the same on every machine;
// nothing is stored. The triangles lie in file order as a stranger's program might have put them.
#pragma once

#include "shapes.h"

#include <cstdint>

namespace velmora::bench {

enum hostile_kind : std::int32_t {
    hostile_point,    ///< all corners of all triangles in one place
    hostile_line,     ///< no triangle has an area; all lie on one line
    hostile_copies,   ///< one triangle over and over
    hostile_book,     ///< all pages share one edge
    hostile_umbrella, ///< one open fan: a vertex with as many triangles as there are
    hostile_flower,   ///< petals of two triangles, all at one vertex, which their borders share
    hostile_star,     ///< triangles that have one corner in common and no edge
    hostile_saw,      ///< one strip whose border has a tooth at each triangle
    hostile_soup,     ///< random triangles between the points of a coarse lattice
    hostile_crowd,    ///< random small triangles, all in a thousandth of the space but a few
    hostile_moebius,  ///< bands of 62 triangles that can't be oriented
    hostile_shells,   ///< octahedra, one in the other
    hostile_huge,     ///< a ball of 1e38
    hostile_tiny,     ///< a ball of 1e-38
    hostile_wide,     ///< corners anywhere from 1e-38 to 1e38
    hostile_infinite, ///< a ball of which some corners are infinite
    hostile_count,
};

/// The kind of that name, or hostile_count.
hostile_kind hostile_by_name(const char* name);

const char* hostile_name(hostile_kind kind);

/// Triangle `index` of a hostile model of `count` triangles.
triangle hostile_triangle(hostile_kind kind, std::uint64_t count, std::uint64_t seed,
                          std::uint64_t index);

} // namespace velmora::bench
