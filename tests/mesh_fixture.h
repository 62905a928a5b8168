// tests/mesh_fixture.h - the builder of every test mesh: points by letter, triangles by letters.
//
//     mesh_fixture m("a 0 0 0  b 1 0 0  c 0 1 0  d 1 1 0", "abc cbd");
//     m.corner("abc", 'b');          // the vertex record that corner has now
//     m.nbrs("abc");                 // "- cbd -" once the links stand
//
// The triangles stand in a tree as a run has them after reading: boxes with the reader's margin,
// inserted last triangle first. There is one mesh at a time, since the pools are the process's own;
// the fixture gives everything back when it goes, and puts the tolerances back to their defaults.
#pragma once

#include "mesh/audit.h"
#include "mesh/context.h"
#include "mesh/records.h"
#include "repair/edge_groups.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace velmora {

/// How corners at the same letter become vertex records.
enum mesh_form {
    shared_corners, ///< one record for each letter, as after the merge
    soup,           ///< one record for each corner, as a reader makes them
};

/// One mesh and the run-wide records around it.
struct mesh_fixture {
    using point = std::array<float, 3>;
    using corners = std::array<int, 3>;

    mesh_ctx ctx;
    model_ctx model;
    topo_ctx topo;
    edge_groups sides = {};
    std::int32_t err = err_none;
    std::vector<tr_h> trs;          ///< all triangles, in the order in which they were listed
    std::vector<std::string> names; ///< letters of each, "???" where the mesh came from numbers

    /// `points` is "a 0 0 0  b 1 0 0 ...", `triangles` is "abc acd ...".
    mesh_fixture(const char* points, const char* triangles, mesh_form form = shared_corners);

    /// For computed meshes: corners are places in `points`.
    mesh_fixture(const std::vector<point>& points, const std::vector<corners>& triangles,
                 mesh_form form = shared_corners);

    ~mesh_fixture();
    mesh_fixture(const mesh_fixture&) = delete;
    mesh_fixture& operator=(const mesh_fixture&) = delete;

    /// The first triangle listed with these letters. In another order of the letters it is found
    /// when none is listed in this one.
    tr_h tr(const std::string& letters) const;
    tr_rec& at(const std::string& letters) const;
    obj_h obj(const std::string& letters) const;

    /// The corner of a triangle at the place where `letter` was listed.
    vtx_h corner(const std::string& letters, char letter) const;

    /// The record of a point, in a mesh with shared corners.
    vtx_h vtx(char letter) const;

    /// Its neighbours by edge as "cbd - ace"; "-" where there is none, "x" for one that is dead.
    std::string nbrs(const std::string& letters) const;

    /// Name of a triangle, "-" for none.
    std::string name(tr_h t) const;

    /// Links two triangles across the edge of theirs that has the same two letters or records.
    void link(const std::string& a, const std::string& b);

    /// Links every edge that is free with the next triangle in the list that has it free, too.
    void link_all();

    /// Moves a point with all its records, and fills the tree anew.
    void move(char letter, float dx, float dy, float dz);

    /// Sets the merge tolerance, and fills the tree anew.
    void set_merge_tol(float tol);

    /// Takes all triangles out of the tree and puts them in again, as after reading; leaves of
    /// `list_len` objects, where it is given, make a deep tree of a small mesh.
    void fill_tree(std::uint32_t list_len = 0);

    /// Triangles in the tree, found by walking it.
    std::uint32_t tr_count();

    /// Different vertex records among the corners of the triangles in the tree.
    std::uint32_t vtx_count();

    /// Triangles in the tree that bear all of `flags`.
    std::uint32_t flag_count(std::uint64_t flags);

    /// Number of neighbour slots that are set, over all triangles in the tree.
    std::uint32_t link_count();

    /// Recounts all holders, the tree's and those of the lists in `topo`; complaints go to the log.
    bool counts_are_exact(const std::vector<const obj_list*>& more_lists = {});

    /// Whether every link points at a living triangle that answers.
    bool links_are_mutual();

  private:
    std::vector<point> pts;
    std::vector<corners> tris;
    std::string letters_; ///< letter of each point

    void build(mesh_form form);
    void put_into_tree(const obj_list& reversed, std::uint32_t list_len = 0);
    std::size_t index_of(const std::string& letters) const;
    aabb model_box() const;
};

} // namespace velmora
