#include "linked.h"
#include "repair/orient.h"

#include <gtest/gtest.h>

namespace velmora {
namespace {

stage_result orient(mesh_fixture* m)
{
    m->topo.orient_a = m->topo.orient_b = 1;
    return orient_components(&m->topo, &m->err, &m->ctx);
}

TEST(orient, turns_a_cube_outwards)
{
    for (const bool outwards : {true, false}) {
        solid s;
        add_cube(&s, {0, 0, 0}, 1, outwards);
        // One face is at odds with the others.
        std::swap(s.trs[3][0], s.trs[3][1]);
        mesh_fixture m(s.points, s.trs);
        m.link_all();
        EXPECT_EQ(orient(&m), stage_ok);
        EXPECT_EQ(volume(m, 0, 12), 8.0);
        EXPECT_EQ(m.topo.components, 1u);
        EXPECT_EQ(m.topo.tri_oriented, 12u);
        EXPECT_EQ(m.flag_count(tr_winding_turned), outwards ? 1u : 11u);
        for (const tr_h t : m.trs)
            EXPECT_GT(vec_dot(corner_pos(rec(t), 0), rec(t).nrm), 0.0);
        EXPECT_TRUE(m.links_are_mutual());
    }
}

TEST(orient, makes_a_shell_within_a_shell_a_cavity)
{
    solid s;
    add_cube(&s, {0, 0, 0}, 8, false);
    add_cube(&s, {0.5f, 0.25f, 0.125f}, 2, true);
    add_cube(&s, {20, 0.5f, 0.25f}, 1, false);
    mesh_fixture m(s.points, s.trs);
    m.link_all();
    EXPECT_EQ(orient(&m), stage_ok);
    EXPECT_EQ(m.topo.components, 3u);
    EXPECT_EQ(volume(m, 0, 12), 4096.0);
    EXPECT_NEAR(volume(m, 12, 12), -64.0, 1e-3);
    EXPECT_NEAR(volume(m, 24, 12), 8.0, 1e-3);
}

TEST(orient, asks_the_other_way_when_a_ray_grazes_an_edge)
{
    // Above the seed's middle lies an edge of a roof; below it nothing.
    mesh_fixture m(
        "a 0 0 0  b 3 0 0  c 0 3 0  d 1 1 5  e 1 -4 5  f 5 1 5  g 0 0 9  h 9 0 9  i 0 9 9",
        "abc dfe ghi");
    m.at("dfe").flags = m.at("ghi").flags = tr_nrm_done | tr_no_nrm;
    m.at("dfe").flags &= ~std::uint64_t{tr_no_nrm};
    m.at("dfe").nrm[2] = 1.0f;
    EXPECT_EQ(orient(&m), stage_ok);
    EXPECT_EQ(m.topo.components, 1u);
    // Nothing lies below, so below is outside and the triangle is turned over.
    EXPECT_EQ(m.at("abc").nrm[2], -1.0f);
}

TEST(orient, leaves_a_piece_alone_whose_rays_are_all_unclean)
{
    mesh_fixture m("a 0 0 0  b 3 0 0  c 0 3 0  d 1 1 5  e 1 -4 5  f 5 1 5  g 1 1 -5  h 1 -4 -5  "
                   "i 5 1 -5",
                   "abc dfe gih");
    m.at("dfe").flags = m.at("gih").flags = tr_nrm_done;
    m.at("dfe").nrm[2] = m.at("gih").nrm[2] = 1.0f;
    EXPECT_EQ(orient(&m), stage_ok);
    EXPECT_EQ(m.topo.components, 0u);
    EXPECT_EQ(m.topo.tri_oriented, 0u);
    EXPECT_FALSE(m.at("abc").flags & (tr_nrm_done | tr_winding_turned));
}

TEST(orient, falls_back_on_the_last_sliver_only)
{
    // Two slivers far apart.
    mesh_fixture m("a 0 0 0  b 20 0 0  c 10 0.1 0  d 0 8 0  e 20 8 0  f 10 8.1 0", "abc def");
    EXPECT_EQ(orient(&m), stage_ok);
    EXPECT_EQ(m.topo.components, 1u);
    EXPECT_EQ(m.flag_count(tr_nrm_done), 1u);
    EXPECT_TRUE(m.at("abc").flags & tr_nrm_done || m.at("def").flags & tr_nrm_done);
}

TEST(orient, judges_a_sliver_again_that_the_spread_has_reached)
{
    // b-d-c is a sliver beside a-b-c. It is looked at first, kept in mind, reached by the spread,
    // and then counted as a piece of its own.
    mesh_fixture m("a 0 0 0  b 20 0 0  c 0 20 0  d 10.1 10.1 0", "bdc abc");
    m.link_all();
    EXPECT_EQ(orient(&m), stage_ok);
    EXPECT_EQ(m.topo.components, 2u);
    EXPECT_EQ(m.topo.tri_oriented, 3u);
}

TEST(branch_edges, are_those_with_three_users_by_position)
{
    const char* const points = "a 0 0 0  b 0 0 2  c 1 0 1  d -1 0 1  e 0 1 1  f 0 -1 1";
    mesh_fixture m(points, "abc bda ebd eab", soup);
    m.at("bda").branch_edges = 7; // left from an earlier cycle
    EXPECT_EQ(orient(&m), stage_ok);
    EXPECT_EQ(m.at("abc").branch_edges, 1);
    EXPECT_EQ(m.at("bda").branch_edges, 4);
    EXPECT_EQ(m.at("eab").branch_edges, 2);
    EXPECT_EQ(m.at("ebd").branch_edges, 0);
}

TEST(reset_orientation, makes_all_unreached_but_what_asks_for_a_fresh_normal)
{
    mesh_fixture m("a 0 0 0  b 3 0 0  c 0 3 0  d 0 -3 0  x 6 0 0", "abc bad abx");
    for (const tr_h t : m.trs)
        rec(t).flags |= tr_nrm_done | tr_prob_33;
    m.at("bad").flags |= tr_orient_seen;
    m.at("bad").flags &= ~std::uint64_t{tr_nrm_done};
    m.at("abx").flags |= tr_orient_seen;
    m.at("abx").nrm[0] = 1.0f;
    reset_orientation(&m.ctx);
    EXPECT_FALSE(m.at("abc").flags & (tr_nrm_done | tr_prob_33));
    EXPECT_TRUE(m.at("bad").flags & tr_nrm_done);
    EXPECT_EQ(m.at("bad").nrm[2], 1.0f);
    EXPECT_EQ(m.at("abx").nrm[0], 1.0f); // without a normal of its own it keeps the old one
}

} // namespace
} // namespace velmora
