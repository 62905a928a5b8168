#include "mesh/measure.h"
#include "mesh/vec.h"
#include "reduce_fixture.h"

#include <gtest/gtest.h>

namespace velmora {

struct tip_move {
    const char* name;
    unsigned test;
    float from_y;
    float to_y, to_z;
    bool passes;
};

// Of the tip of a flat triangle whose base lies at y = 0 and is 2 long. Height over base is half
// the height and may fall to 0.25; the corners at the base have a cosine of 0.6 at a height of 4/3,
// the limit.
static const tip_move tip_moves[] = {
    {"leans", test_normals, 1, 0.25f, 1, true},
    {"upright: a right angle exactly", test_normals, 1, 0, 1, true},
    {"over the base", test_normals, 1, -0.25f, 1, false},
    {"flat on the other side", test_normals, 1, -0.5f, 0, false},
    {"no area left", test_normals, 1, 0, 0, true},
    {"high enough, exactly", test_heights, 1, 0.5f, 0, true},
    {"too low", test_heights, 1, 0.499f, 0, false},
    {"no height left", test_heights, 1, 0, 0, false},
    {"low gets higher", test_heights, 0.2f, 0.4f, 0, true},
    {"none gets some", test_heights, 0, 0.1f, 0, true},
    {"low stays as it is", test_heights, 0.25f, 0.25f, 0, true},
    {"low gets lower", test_heights, 0.4f, 0.375f, 0, false},
    {"blunt enough", test_angles, 1.4f, 1.3334f, 0, true},
    {"too sharp", test_angles, 1.4f, 1.3332f, 0, false},
    {"sharp gets blunter", test_angles, 1, 1.1f, 0, true},
    {"sharp stays as it is", test_angles, 1, 1, 0, true},
    {"sharp gets sharper", test_angles, 1, 0.9f, 0, false},
};

static const char* const k_tip_points = "b -1 0 0  c 1 0 0  o 0 0 0  t 0 0 0  u 9 0 0  v 9 1 0";

TEST(trial, spares_good_triangles_and_worsens_no_bad_one)
{
    for (const tip_move& c : tip_moves) {
        SCOPED_TRACE(c.name);
        reduce_mesh m(k_tip_points, "obc tuv");
        m.move('o', 0, c.from_y, 0);
        m.move('t', 0, c.to_y, c.to_z);
        m.enter();
        float nrm[3];
        vec_copy(m.at("obc").nrm, nrm);
        const bool can_be_off = c.test != test_normals;
        EXPECT_EQ(trial_passes(m.site('o'), m.vtx('t'), c.test), can_be_off || c.passes);
        m.params.height_ratio = 0.25;
        m.params.min_angle_cos = 0.6;
        EXPECT_EQ(trial_passes(m.site('o'), m.vtx('t'), c.test), c.passes);
        EXPECT_TRUE(pts_same(m.at("obc").nrm, nrm));
        EXPECT_EQ(rec(m.vtx('o')).pos[1], c.from_y);
    }
}

TEST(trial, leaves_the_marks_of_dying_triangles_when_refused)
{
    reduce_mesh m(k_hexagon_points, k_hexagon_trs);
    m.params.min_angle_cos = 0.5; // the triangles abc and aef would have sharper corners
    m.params.max_edge = 1.5;      // d lies 2 from a
    m.enter();
    EXPECT_FALSE(trial_passes(m.site('o'), m.vtx('a'), test_edges | test_shape));
    EXPECT_EQ(m.flag_count(tr_no_nrm), 0u); // edges are asked for first
    EXPECT_FALSE(trial_passes(m.site('o'), m.vtx('a'), test_shape));
    EXPECT_TRUE(m.at("oab").flags & m.at("ofa").flags & tr_no_nrm);
    EXPECT_EQ(m.at("oab").nrm[2], 1.0f);
    EXPECT_TRUE(trial_passes(m.site('o'), m.vtx('d'), test_normals));
    EXPECT_TRUE(m.at("ocd").flags & m.at("ode").flags & tr_no_nrm);
    EXPECT_EQ(m.flag_count(tr_no_nrm), 2u);
}

TEST(edge_test, bound_is_closed_and_only_edges_at_the_vertex_count)
{
    reduce_mesh m("o 0 0 0  b 3 4 0  c 0 4 0", "obc");
    m.enter();
    for (const double longest : {0.0, 5.0, 4.999}) {
        m.params.max_edge = longest;
        EXPECT_EQ(vtx_edges_ok(m.site('o')), longest != 4.999);
        EXPECT_EQ(vtx_edges_ok(m.site('b')), longest != 4.999);
        EXPECT_TRUE(vtx_edges_ok(m.site('c')));
    }
}

struct nearest_case {
    const char* name;
    double max_edge;
    float arm;
    const char* nearer; ///< letters that come closer to o, by a quarter of the arm each
    char expected;      ///< '-' none
};

// Four arms, met in the order a b d a c d b c.
static const nearest_case nearest_cases[] = {
    {"off", 0.0, 1.0f, "", '-'},
    {"none under the bound", 1.0, 1.0f, "", '-'},
    {"only one under the bound", 1.0, 1.0f, "d", 'd'},
    {"the first of equals", 1.5, 1.0f, "cd", 'd'},
    {"the nearest", 1.0, 1.0f, "bddc", 'd'},
    {"the last of equals, since the bound is rounded up", 1.5, 0.7f, "", 'c'},
    {"the first of equals, since the bound is rounded down", 1.5, 0.1f, "", 'a'},
};

TEST(nearest_neighbour, lies_over_the_shortest_edge_under_the_bound)
{
    for (const nearest_case& c : nearest_cases) {
        reduce_mesh m("o 0 0 0  a 1 0 0  b 0 1 0  c -1 0 0  d 0 -1 0", "oab obc ocd oda");
        for (const char letter : std::string("abcd")) {
            float share = c.arm;
            for (const char* p = c.nearer; *p; ++p)
                if (*p == letter) share -= 0.25f * c.arm;
            float* pos = rec(m.vtx(letter)).pos;
            vec_scale(pos, share, pos);
        }
        m.fill_tree();
        m.params.max_edge = c.max_edge;
        m.enter();
        ASSERT_EQ(m.fan('o'), "oab oda ocd obc");
        const vtx_h nearest = vtx_shortest_nb(m.site('o'));
        EXPECT_EQ(nearest, c.expected == '-' ? vtx_h{} : m.vtx(c.expected)) << c.name;
    }
}

TEST(commit, puts_the_target_everywhere_and_keeps_the_counts)
{
    for (const std::int32_t mode : {mode_dist, mode_aspect}) {
        reduce_mesh m("o 1 2 3  a 2 2 3  b 1 3 3  c 0 2 3  d 1 1 3", "oab obc ocd oda");
        m.params.mode = mode;
        m.enter();
        vtx_commit(m.site('o'), m.vtx('a'));
        EXPECT_EQ(m.target('o'), 'a');
        const float home[3] = {1.0f, 2.0f, 3.0f};
        const float nowhere[3] = {0.0f, 0.0f, 0.0f};
        EXPECT_TRUE(pts_same(m.info('o').moved, mode == mode_dist ? home : nowhere));
        EXPECT_EQ(m.vtx_count(), 4u);
        EXPECT_TRUE(tr_collapsed(m.at("oab")) && tr_collapsed(m.at("oda")));
        EXPECT_EQ(m.flag_count(tr_no_nrm), 2u);
        EXPECT_TRUE(pts_same(m.at("oab").nrm, nowhere));
        EXPECT_EQ(m.at("obc").nrm[2], 1.0f);
        EXPECT_EQ(rec(m.vtx('a')).refs, 6 + 2); // six corners, two records of the table
        EXPECT_TRUE(m.holders_are_exact());
        vtx_table_free(&m.table);
        EXPECT_TRUE(m.counts_are_exact());
    }
}

TEST(commit, takes_over_no_normals_of_another_move)
{
    for (const char tried : {'-', 'a', 'c'}) {
        for (const bool twice : {false, true}) {
            SCOPED_TRACE(std::string{"tried on "} + tried + (twice ? ", twice in obc" : ""));
            reduce_mesh m("o 0 0 1  a 2 0 0  b 0 2 0  c -2 0 0  d 0 -2 0", "oab obc ocd oda");
            m.enter();
            if (twice)
                vtx_overwrite(&m.at("obc").vtx[2], m.vtx('o')); // moved by a trial as a whole
            if (tried != '-') trial_passes(m.site('o'), m.vtx(tried), test_normals);
            vtx_commit(m.site('o'), m.vtx('a'));
            for (const tr_h t : m.trs) {
                tr_rec anew = rec(t);
                tr_recompute_nrm(&anew, true, nullptr);
                EXPECT_TRUE(pts_same(anew.nrm, rec(t).nrm));
            }
        }
    }
}

} // namespace velmora
