#include "linked.h"
#include "repair/degenerate.h"

#include <gtest/gtest.h>
#include <random>

namespace velmora {
namespace {

stage_result remove_all(mesh_fixture* m, double tol = 1e-6)
{
    return remove_degenerates_pass(tol, &m->err, &m->ctx);
}

// A ring of eight around the pair b-c-d (degenerate) and c-b-a; c and d almost meet.
//
//       e-------f
//       |\     /|
//       | \   / |
//       |  c=d  |      a - c - d - b ... in the middle, the sliver lies between c and d
//       | /   \ |
//       |/     \|
//       g-------h
struct pinched {
    mesh_fixture m;

    pinched()
        : m("c 3 2 0  d 3.125 2 0  e 0 4 0  f 6 4 0  g 0 0 0  h 6 0 0", "cde dfe dhf cgh cdh ceg")
    {
        link_with_normals(&m);
        m.at("cde").flags |= tr_no_nrm;
    }
};

TEST(short_edge, vanishes_with_both_its_triangles)
{
    pinched p;
    const vtx_h c = p.m.vtx('c');
    const vtx_h d = p.m.vtx('d');
    ASSERT_EQ(rec(c).refs, 4);
    ASSERT_EQ(rec(d).refs, 4);
    EXPECT_EQ(remove_all(&p.m, 0.125), stage_ok);
    EXPECT_EQ(p.m.tr_count(), 4u);
    EXPECT_EQ(p.m.ctx.tr_count, 4u);
    // Equal counts: the start of the edge stays. Four rim triangles, each with two neighbours.
    for (const char* t : {"dfe", "dhf"})
        EXPECT_EQ(p.m.corner(t, 'd'), c);
    EXPECT_EQ(rec(c).refs, 4);
    EXPECT_EQ(p.m.nbrs("dfe"), "dhf - ceg");
    EXPECT_EQ(p.m.nbrs("cgh"), "ceg - dhf");
    EXPECT_EQ(p.m.vtx_count(), 5u);
    EXPECT_TRUE(p.m.counts_are_exact());
    EXPECT_TRUE(p.m.links_are_mutual());
}

TEST(short_edge, keeps_the_vertex_with_more_users)
{
    pinched p;
    const vtx_h d = vtx_ref(p.m.vtx('d'));
    EXPECT_EQ(remove_all(&p.m, 0.125), stage_ok);
    EXPECT_EQ(p.m.corner("ceg", 'c'), d);
    EXPECT_EQ(p.m.corner("cgh", 'c'), d);
    EXPECT_GT(p.m.at("ceg").nrm[2], 0.9f);
    vtx_release(d);
}

TEST(short_edge, is_no_longer_than_the_bound)
{
    pinched p;
    EXPECT_EQ(remove_all(&p.m, 0.1249), stage_ok);
    EXPECT_EQ(p.m.vtx_count(), 6u); // it went as a cap
}

// The cap a-b-x with its apex x on the long edge a-b, b-a-r across it, and neighbours all around.
//
//          y             x lies on a - b
//         / \            .
//        a-x-b           .
//         \ /            .
//          r             .
struct capped {
    mesh_fixture m;

    capped(const char* triangles = "abx bar axy xby rbs ras")
        : m("a 0 0 0  b 4 0 0  x 2 0 0  y 2 3 0  r 2 -3 0  s 2 -6 0", triangles)
    {
        link_with_normals(&m);
    }
};

TEST(cap, makes_way_for_two_triangles_at_its_apex)
{
    capped c;
    ASSERT_EQ(c.m.flag_count(tr_no_nrm), 1u);
    rec(c.m.tr("bar")).plane_class = 301;
    c.m.at("bar").flags |= tr_mark_5;
    EXPECT_EQ(remove_all(&c.m), stage_ok);
    EXPECT_EQ(c.m.tr_count(), 6u);
    EXPECT_EQ(c.m.flag_count(tr_no_nrm), 0u);
    EXPECT_EQ(c.m.flag_count(tr_mark_5 | tr_loaded), 2u);
    EXPECT_TRUE(c.m.links_are_mutual());
    EXPECT_TRUE(c.m.counts_are_exact());
    // x is now a corner of both, and they hang on each other and on all four around.
    const tr_h left = c.m.at("axy").nbr[0];
    const tr_h right = c.m.at("xby").nbr[0];
    ASSERT_TRUE(left && right);
    EXPECT_EQ(rec(left).vtx[0], c.m.vtx('r'));
    EXPECT_EQ(rec(left).vtx[1], c.m.vtx('x'));
    EXPECT_EQ(rec(left).vtx[2], c.m.vtx('a'));
    EXPECT_EQ(rec(right).vtx[1], c.m.vtx('b'));
    EXPECT_EQ(rec(left).nbr[0], right);
    EXPECT_EQ(c.m.at("rbs").nbr[0], right);
    EXPECT_EQ(rec(left).plane_class, 301);
    EXPECT_EQ(rec(right).id + 1, rec(left).id);
    EXPECT_EQ(rec(left).nrm[2], rec(right).nrm[2]);
    EXPECT_EQ(links_may_dangle, false);
}

TEST(cap, is_kept_where_a_split_would_fold_the_surface)
{
    for (const char* trs : {
             "abx bar axr xby rbs", // axr touches both
             "abx bar axy rbs",     // both have an open edge
         }) {
        capped c(trs);
        EXPECT_EQ(remove_all(&c.m), stage_ok);
        EXPECT_NE(c.m.at("abx").flags & tr_no_nrm, 0u) << trs;
        EXPECT_EQ(c.m.at("abx").nbr[0], c.m.tr("bar"));
        EXPECT_TRUE(c.m.counts_are_exact());
    }
}

TEST(cap, is_kept_beside_another_degenerate_or_an_unanswered_link)
{
    for (const bool answered : {true, false}) {
        capped c;
        if (answered) {
            c.m.at("bar").flags |= tr_no_nrm;
        } else {
            c.m.at("bar").nbr[0] = {};
        }
        EXPECT_EQ(remove_all(&c.m), stage_ok);
        EXPECT_EQ(c.m.tr_count(), 6u);
        EXPECT_EQ(c.m.at("abx").nbr[0], c.m.tr("bar"));
    }
}

TEST(cap, is_kept_when_the_new_triangles_were_no_better)
{
    // r lies on the line as well, so one of the two would be flat again.
    mesh_fixture m("a 0 0 0  b 4 0 0  x 2 0 0  y 2 3 0  r 8 0 0  s 2 -6 0",
                   "abx bar axy xby rbs ras");
    link_with_normals(&m);
    m.at("bar").flags &= ~std::uint64_t{tr_no_nrm};
    const std::uint32_t used = tr_pool.used;
    EXPECT_EQ(remove_all(&m), stage_ok);
    EXPECT_EQ(m.tr_count(), 6u);
    EXPECT_TRUE(m.counts_are_exact());
    EXPECT_LE(tr_pool.used, used + 2);
}

// Lone slivers are just deleted. Those in the corner leave a chain of empty cells behind, which is
// pruned up to the root's child while the sweep stands at its end.
TEST(sweep, survives_the_pruning_of_the_cells_it_stands_in)
{
    std::vector<mesh_fixture::point> pts;
    for (const float x : {0.0f, 4.0f, 8.0f, 1000.0f})
        pts.insert(pts.end(), {{x, x, x}, {x + 2, x, x}, {x + 1, x + 0.0001f, x}});
    mesh_fixture m(pts, {{0, 1, 2}, {3, 4, 5}, {6, 7, 8}, {9, 10, 11}});
    for (const tr_h t : m.trs)
        rec(t).flags |= tr_no_nrm;
    split_finely(&m, 1, 21);
    const std::uint32_t before = m.ctx.visit_stamp;
    EXPECT_EQ(remove_all(&m), stage_ok);
    EXPECT_EQ(m.tr_count(), 0u);
    EXPECT_TRUE(is_leaf(rec(m.ctx.root)));
    EXPECT_LE(m.ctx.visit_stamp, before + 6); // all in the first sweep
}

// A crumpled sheet on a coarse grid: short edges, caps, edges with one record at both ends.
solid crumpled(unsigned seed, int cells)
{
    std::mt19937 random(seed);
    solid s;
    add_sheet(&s, cells, 0.0f);
    for (mesh_fixture::point& p : s.points)
        for (int i = 0; i < 2; ++i)
            p[static_cast<std::size_t>(i)] +=
                0.25f * static_cast<float>(static_cast<int>(random() % 5) - 2);
    return s;
}

TEST(sweep, keeps_counts_exact_on_crumpled_sheets)
{
    for (unsigned seed = 0; seed < 60; ++seed) {
        SCOPED_TRACE(seed);
        const solid s = crumpled(seed, 9);
        mesh_fixture m(s.points, s.trs);
        link_with_normals(&m);
        (seed % 4 < 2 ? split_finely : set_limits)(&m, 1 + seed % 7, 14);
        // Some triangles are held elsewhere, as those with edge errors are.
        for (std::size_t i = seed; i < m.trs.size(); i += 11)
            ASSERT_TRUE(list_push(&m.topo.edge_err_list, rec(m.trs[i]).cell));
        const std::uint32_t before = m.flag_count(tr_no_nrm);
        EXPECT_EQ(remove_all(&m, seed % 2 ? 0.3 : 1e-6), stage_ok);
        EXPECT_LE(m.flag_count(tr_no_nrm), before);
        EXPECT_EQ(m.ctx.tr_count, m.tr_count());
        EXPECT_TRUE(m.counts_are_exact());
        if (!links_may_dangle) {
            EXPECT_TRUE(m.links_are_mutual());
        }
    }
}

} // namespace
} // namespace velmora
