#include "mesh/vec.h"
#include "reduce/classify.h"
#include "reduce_fixture.h"

#include <cmath>
#include <gtest/gtest.h>

namespace velmora {

struct bend_case {
    const char* name;
    std::vector<double> degrees; ///< slopes of the six triangles of the fan, in fan order
    std::size_t degenerate;      ///< place of one that is, 9 none
    double sharpest;             ///< in degrees
};

static const bend_case bend_cases[] = {
    {"flat", {0, 0, 0, 0, 0, 0}, 9, 0},
    {"between neighbours", {0, 10, 30, 20, 10, 10}, 9, 20},
    {"between last and first", {0, 20, 40, 60, 80, 100}, 9, 100},
    {"past a degenerate triangle", {0, 10, 90, 20, 10, 0}, 2, 10},
    {"from a degenerate last one", {0, 10, 20, 20, 10, 45}, 5, 45},
};

TEST(fan_bend, is_the_sharpest_all_round)
{
    reduce_mesh m(k_hexagon_points, k_hexagon_trs);
    for (const bend_case& c : bend_cases) {
        m.enter();
        const vtx_fan fan = fan_of(m.table, m.info('o'));
        for (std::uint32_t k = 0; k < 6; ++k) {
            const double angle = c.degrees[k] / 180.0 * k_pi;
            float* nrm = rec(fan.first[k]).nrm;
            vec_set(nrm, static_cast<float>(std::sin(angle)), 0,
                    static_cast<float>(std::cos(angle)));
            if (k == c.degenerate) rec(fan.first[k]).flags |= tr_no_nrm;
        }
        vtx_classify_all(&m.table, m.params);
        EXPECT_NEAR(m.info('o').fan_dot_min, std::cos(c.sharpest / 180.0 * k_pi), 1e-6) << c.name;
    }
}

TEST(classification, starts_anew_in_mode_4)
{
    for (const std::int32_t mode : {mode_dist, mode_aspect}) {
        const bool aspect = mode == mode_aspect;
        reduce_mesh m(k_hexagon_points, k_hexagon_trs);
        m.params.mode = mode;
        m.move('a', 0, 0, 1);
        m.enter();
        vec_set(m.info('e').moved, 1.0f, 2.0f, 3.0f);
        m.type('b') = vtx_removed;
        vtx_classify_all(&m.table, m.params);
        EXPECT_EQ(m.all_of(vtx_unset), aspect ? "ob" : "");
        EXPECT_EQ(m.all_of(vtx_open), "acdef");
        EXPECT_EQ(m.info('o').fan_dot_min == 1.0, aspect);
        const float nowhere[3] = {0.0f, 0.0f, 0.0f};
        EXPECT_TRUE(pts_same(m.info('e').moved, aspect ? nowhere : rec(m.vtx('e')).pos));
    }
}

struct grid_case {
    const char* name;
    float pos[3];
    float nrm[3];
    bool on_line;
};

// With planes 1 apart. Slanted normals count all axes.
static const grid_case grid_cases[] = {
    {"two planes", {1, 2, 0.5f}, {0.6f, 0, 0.8f}, true},
    {"one plane", {1, 2.5f, 0.5f}, {0.6f, 0, 0.8f}, false},
    {"on a face square to x", {1, 2, 0.5f}, {1, 0, 0}, false},
    {"the same from behind", {1, 2, 0.5f}, {-1, 0, 0}, false},
    {"square within the merge tolerance", {1, 2, 0.5f}, {1, 0.5e-6f, 0}, false},
    {"not quite square", {1, 2, 0.5f}, {1, 2e-6f, 0}, true},
    {"square to x, on y and z", {0.5f, 2, 3}, {1, 0, 0}, true},
    {"near enough above", {0.0000009f, 2, 0.5f}, {0, 0.6f, 0.8f}, true},
    {"too far above", {0.0000011f, 2, 0.5f}, {0, 0.6f, 0.8f}, false},
    {"near enough below", {0.9999991f, 2, 0.5f}, {0, 0.6f, 0.8f}, true},
    {"too far below", {0.9999988f, 2, 0.5f}, {0, 0.6f, 0.8f}, false},
    {"near enough below zero", {-0.9999991f, 2, 0.5f}, {0, 0.6f, 0.8f}, true},
    {"beyond the numbers that count", {3e9f, 2, 0.5f}, {0, 0.6f, 0.8f}, false},
};

TEST(grid, keeps_vertices_on_its_lines)
{
    reduce_mesh m("o 0 0 0  a 1 0 0  b 0 1 0", "oab");
    m.enter();
    for (const grid_case& c : grid_cases) {
        vec_copy(c.pos, rec(m.vtx('o')).pos);
        vec_copy(c.nrm, m.info('o').nrm);
        EXPECT_EQ(vtx_on_grid_line(1.0, m.info('o')), c.on_line) << c.name;
    }
    merge_tol = 0.001f; // is not what snaps to a plane
    vec_set(rec(m.vtx('o')).pos, 0.00001f, 2.0f, 0.5f);
    EXPECT_FALSE(vtx_on_grid_line(1.0, m.info('o')));
}

} // namespace velmora
