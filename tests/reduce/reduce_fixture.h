// tests/reduce/reduce_fixture.h - a test mesh with its vertex table, one step of a turn at a time.
//
//     reduce_mesh m(points, triangles);
//     m.classify();                  // fans, normals, boundary, classification
//     m.only("MN");                  // all other vertices locked
//     EXPECT_EQ(m.reduce().plane, 1u);
//     EXPECT_EQ(m.target('M'), 'H');
//
// A letter names a place in the table, also when its vertex is gone.
#pragma once

#include "mesh_fixture.h"
#include "reduce/passes.h"
#include "reduce/validity.h"

#include <string>

namespace velmora {

struct reduce_mesh : mesh_fixture {
    vtx_table table = {};
    reduce_params params = {0.0, 0.0, k_no_angle_limit, 0.0, 0.0, 0.0, 0.0, mode_dist};

    /// The mesh with all its links.
    reduce_mesh(const std::string& points, const std::string& triangles);
    reduce_mesh(const std::vector<point>& points, const std::vector<corners>& triangles);
    ~reduce_mesh();

    void enter();         ///< normals of the triangles, the table unless it stands, its fans
    void classify();      ///< enter(), then what a turn does up to the passes
    pass_counts reduce(); ///< the passes

    /// Locks all vertices but these; those become closed, as if the mesh went on around them.
    void only(const std::string& letters);

    std::uint32_t place(char letter) const
    {
        return static_cast<std::uint32_t>(letters.find(letter));
    }
    vtx_info& info(char letter)
    {
        return table.infos[place(letter)];
    }
    vtx_type& type(char letter)
    {
        return table.types[place(letter)];
    }
    vtx_site site(char letter)
    {
        return site_of(&table, params, place(letter));
    }
    std::string fan(char letter);            ///< as "abc acd"
    std::string all_of(vtx_type type) const; ///< the vertices of this type, in table order
    char target(char letter);                ///< whose record stands in the vertex' place
    bool holders_are_exact() const;          ///< recounts all holders, the table's included

  private:
    std::string letters; ///< by place in the table
};

/// Points and triangles of a flat sheet of `size` x `size` points, a step of 1 apart, lettered by
/// rows from A on; each square is cut from its lower left to its upper right corner. It faces z;
/// an upright one stands on the x axis and looks against y.
///
///     U V W X Y
///     P Q R S T      fan of M:  GHM GML LMR MSR MNS HNM
///     K L M N O
///     F G H I J
///     A B C D E
std::string sheet_points(int size, bool upright = false);
std::string sheet_trs(int size);

/// A point in the middle of six, counterclockwise from a at (1, 0).
constexpr const char* k_hexagon_points =
    "o 0 0 0  a 1 0 0  b .5 1 0  c -.5 1 0  d -1 0 0  e -.5 -1 0  f .5 -1 0 ";
constexpr const char* k_hexagon_trs = "oab obc ocd ode oef ofa";

} // namespace velmora
