// reduce/normals.h - a normal for every vertex, from which its fan is seen as well as can be.
//
// Three roads: the sum of the distinct fan normals for vertices inside the surface, the run along
// the boundary polygons for open ones, and then for all a correction that bends the normal until no
// fan triangle faces away, if such a normal is to be had.
#pragma once

#include "mesh/context.h"
#include "reduce/vtx_table.h"

#include <cstdint>

namespace velmora {

struct plg_rec;

/// First normals of all vertices that are not open; zero without a fan. A fan whose normals cancel
/// out makes the vertex vtx_no_normal.
void vtx_nrm_all(vtx_table* table);

/// Normals of the open vertices along all boundary polygons of the turn.
void plg_vtx_nrm_all(const topo_ctx& topo);

/// Bends the normal of the vertex so that every fan triangle faces forward, where it can. A fan of
/// more than k_most_fan_dots triangles is reported in the log and left alone.
void get_nrm4vtx(const vtx_table& table, vtx_info* info);

constexpr std::uint32_t k_most_fan_dots = 1000;

} // namespace velmora
