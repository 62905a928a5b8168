#include "mesh/cell_tree.h"
#include "mesh/measure.h"
#include "topo/links.h"
#include "topo_mesh.h"

namespace velmora {

static void link(topo_mesh* m)
{
    ASSERT_EQ(link_nbrs(&m->topo, &m->err, &m->ctx), stage_ok);
    m->expect_sound();
}

TEST(links, winding_plays_no_part)
{
    for (const char* trs : {"abc bad", "abc abd"}) {
        topo_mesh m("a 0 0 0  b 1 0 0  c 0 1 0  d 0 -1 0", trs);
        link(&m);
        EXPECT_EQ(m.nbrs("abc"), m.names[1] + " - -");
        EXPECT_EQ(m.topo.edge_errors, 0u);
    }
}

TEST(links, cube_is_closed)
{
    topo_mesh m(k_cube_points, k_cube_trs);
    link(&m);
    EXPECT_EQ(m.link_count(), 36u);
    EXPECT_EQ(m.topo.edge_errors, 0u);
}

TEST(links, set_slots_stand)
{
    topo_mesh m("a 0 0 0  b 1 0 0  c 0 1 0  d 0 -1 0  e 0 0 1", "abc abd abe");
    m.link("abd", "abe");
    link(&m);
    EXPECT_EQ(m.nbrs("abd"), "abe - -");
    EXPECT_EQ(m.nbrs("abc"), "- - -");
    EXPECT_EQ(m.topo.edge_errors, 2u);
}

// The chain of all objects is the reverse of the leaf's order, so the last triangle is first to
// claim, and the leaf's first triangle first to answer.
TEST(links, third_claimant_is_an_edge_error)
{
    topo_mesh m("a 0 0 0  b 1 0 0  c 0 1 0  d 0 -2 0  e 0 0 3", "abc abd abe");
    link(&m);
    EXPECT_EQ(m.nbrs("abe"), "abc - -");
    EXPECT_EQ(m.nbrs("abc"), "abe - -");
    EXPECT_EQ(m.nbrs("abd"), "- - -");
    EXPECT_EQ(m.topo.edge_errors, 2u);
    EXPECT_EQ(m.topo.edge_err_list.count, 2u);
    ASSERT_EQ(m.topo.edge_errs.count, 1u);
    ASSERT_EQ(m.topo.edge_errs.entries[0].count, 3u);
    EXPECT_EQ(m.topo.edge_errs.entries[0].users[0].obj, m.obj("abc"));
    EXPECT_EQ(m.topo.edge_errs.entries[0].users[2].obj, m.obj("abe"));
    EXPECT_EQ(m.flag_count(tr_edge_err | tr_edge_err2), 3u);
}

TEST(links, duplicate_takes_no_twin_but_claims_its_edges)
{
    topo_mesh m("a 0 0 0  b 1 0 0  c 0 1 0  d 0 -1 0", "abc bca abd");
    link(&m);
    EXPECT_EQ(m.nbrs("abd"), "abc - -");
    EXPECT_EQ(m.nbrs("abc"), "abd - -");
    EXPECT_EQ(m.nbrs("bca"), "- - -");
    EXPECT_EQ(m.topo.edge_errors, 1u);
}

// Two triangles with two edges in common, which is possible only while records differ in the
// third corner's place: here a-b-c and a-b-c' with c and c' apart.
TEST(links, fold_is_no_error)
{
    topo_mesh m("a 0 0 0  b 1 0 0  c 0 1 0  d 1 1 0", "abc adc abd bcd");
    link(&m);
    EXPECT_EQ(m.link_count(), 12u);
    EXPECT_EQ(m.topo.edge_errors, 0u);
}

TEST(links, dead_neighbour_is_an_empty_slot)
{
    topo_mesh m("a 0 0 0  b 1 0 0  c 0 1 0  d 0 -1 0  e 0 0 1", "abc abd abe");
    m.at("abd").nbr[0] = m.tr("abe");
    links_may_dangle = true;
    tr_delete(m.tr("abe"), &m.ctx);
    m.at("abd").nbr[0] = m.trs[2];
    link(&m);
    EXPECT_EQ(m.nbrs("abc"), "abd - -");
    EXPECT_EQ(m.nbrs("abd"), "abc - -");
}

TEST(links, edge_errors_run_out_of_memory_quietly)
{
    bool done = false;
    for (std::uint64_t nth = 1; !done; ++nth) {
        ASSERT_LT(nth, 40u);
        topo_mesh m("a 0 0 0  b 1 0 0  c 0 1 0  d 0 -2 0  e 0 0 3", "abc abd abe");
        heap_fail_nth(nth);
        const stage_result linked = link_nbrs(&m.topo, &m.err, &m.ctx);
        done = heap_calls() < nth;
        heap_fail_nth(0);
        EXPECT_EQ(m.err == err_no_memory, linked == stage_failed);
        EXPECT_TRUE(m.holders_are_exact());
        EXPECT_TRUE(m.links_are_mutual());
    }
}

} // namespace velmora
