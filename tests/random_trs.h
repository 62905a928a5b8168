// tests/random_trs.h - small random meshes, full of shared, crowded and repeated edges.
#pragma once

#include "mesh_fixture.h"

#include <random>
#include <vector>

namespace velmora {

/// `count` points on a small grid, so that some coincide and many share coordinates.
inline std::vector<mesh_fixture::point> random_points(unsigned seed, unsigned count)
{
    std::mt19937 random(seed);
    std::vector<mesh_fixture::point> points(count);
    for (mesh_fixture::point& p : points)
        for (float& x : p)
            x = 0.25f * static_cast<float>(static_cast<int>(random() % 9) - 4);
    return points;
}

/// `count` triangles over `points` points, each with three different ones.
inline std::vector<mesh_fixture::corners> random_trs(unsigned seed, unsigned points, unsigned count)
{
    std::mt19937 random(seed + 1000);
    std::vector<mesh_fixture::corners> trs;
    while (trs.size() < count) {
        mesh_fixture::corners c;
        for (int& i : c)
            i = static_cast<int>(random() % points);
        if (c[0] != c[1] && c[1] != c[2] && c[2] != c[0]) trs.push_back(c);
    }
    return trs;
}

} // namespace velmora
