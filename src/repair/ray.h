// repair/ray.h - rays through the tree: how often the surface lies between a point and the outside.
//
// A ray visits only the leaves on its way. It is clean when each of its crossings is: one that
// grazes an edge or a corner, or meets a triangle whose edge has too many users, tells nothing.
// Rays give triangles without a normal one to work with; they leave them unreached all the same.
#pragma once

#include "mesh/cell_tree.h"
#include "mesh/records.h"

#include <cstdint>

namespace velmora {

struct pt_2d {
    float u;
    float v;
};

enum polygon_side : int {
    pt_outside,
    pt_inside,
    pt_on_outline,
};

/// Where `at` lies against the closed outline through `pts`, by the parity of crossings.
polygon_side point_in_polygon_2d(pt_2d at, const pt_2d* pts, int n);

enum crossing : int {
    crossing_miss,
    crossing_inside,
    crossing_on_boundary, ///< on an edge or a corner, or too close to tell
};

/// How the segment between two points, in either order, crosses `tr`. Looks at the triangle along
/// the main axis of its stored normal, which may be zero.
crossing segment_triangle_class(const tr_rec& tr, const float* from, const float* to);

/// Moves `pt` along `dir` onto the face of `box` through which it leaves; never backwards. Moves
/// it very far when no face says how far.
void ray_to_box_exit(const aabb& box, const float* dir, float* pt);

struct ray_answer {
    bool clean; ///< the parity can be trusted
    bool odd;   ///< an odd number of triangles was crossed
};

/// Walks from `center`, on the triangle of `seed`, along `dir` to the end of the model.
/// @param leaf  a leaf that lists the seed
ray_answer cast_seed_ray(node_h root, node_h leaf, obj_h seed, const float* center,
                         const float* dir);

} // namespace velmora
