// bench/distance.h - how far one surface lies from another, for judging a reduced model.
//
// A surface is a list of triangles. Sample points of one are held against all triangles of the
// other: its corners, and points in between that are not farther apart than a given step. All in
// double, from the floats of the files.
#pragma once

#include "shapes.h"

#include <cstddef>
#include <vector>

namespace velmora::bench {

/// Distance of `p` from the nearest point of the triangle, a degenerate one included.
double point_triangle_distance(const double p[3], const triangle& tr);

/// Triangles in a tree of boxes, for finding the nearest.
class surface {
  public:
    explicit surface(std::vector<triangle> trs);

    /// Distance of `p` from the surface; infinite when there is no triangle.
    double distance(const double p[3]) const;

    const std::vector<triangle>& triangles() const
    {
        return trs_;
    }

    /// Longest diagonal of the box round all triangles.
    double diagonal() const;

  private:
    struct node {
        float min[3];
        float max[3];
        std::size_t first; ///< first triangle below
        std::size_t count; ///< triangles below
        std::size_t high;  ///< second child; the first stands behind the node; 0 in a leaf
    };

    void build(std::size_t first, std::size_t count);
    void search(std::size_t at, const double p[3], double* best) const;

    std::vector<triangle> trs_;
    std::vector<node> nodes_;
};

/// What sample points of one surface measure against another.
struct deviation {
    double max;  ///< largest distance
    double mean; ///< mean over the area
};

/// From `from` to `to`, with sample points at most `step` apart along edges.
deviation measure_deviation(const surface& from, const surface& to, double step);

} // namespace velmora::bench
