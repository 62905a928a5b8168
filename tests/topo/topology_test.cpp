#include "mesh/cell_tree.h"
#include "mesh/measure.h"
#include "random_trs.h"
#include "topo/topology.h"
#include "topo_mesh.h"

namespace velmora {

static void build(topo_mesh* m)
{
    ASSERT_EQ(topo_build(&m->err, &m->ctx), stage_ok);
    m->expect_sound();
}

// The corners b and e are not equal, only close: stitching leaves the edge, the search links it.
TEST(topology, close_points_link_by_search)
{
    topo_mesh m("a 0 0 0  b 1 0 0  c 0 1 0  d 1 1 0  e 1.125 0 0", "abc edc", soup);
    m.set_merge_tol(0.125f);
    build(&m);
    EXPECT_EQ(m.nbrs("abc"), "- edc -");
    EXPECT_EQ(m.vtx_count(), 4u);
}

TEST(topology, collapsed_triangles_go)
{
    topo_mesh m("a 0 0 0  b 0.0625 0 0  c 0 1 0  d 1 1 0  e -1 0 0", "abc bdc eac", soup);
    m.set_merge_tol(0.125f);
    build(&m);
    EXPECT_EQ(m.ctx.tr_count, 2u);
    EXPECT_EQ(m.nbrs("bdc"), "- - eac");
}

TEST(topology, update_fills_open_slots_and_drops_collapsed)
{
    topo_mesh m("a 0 0 0  b 1 0 0  c 1 1 0  d 0 1 0  e -1 0 0", "abc acd ade");
    m.link("acd", "ade");
    vtx_h* const slot = &m.at("ade").vtx[2];
    vtx_release(*slot);
    *slot = vtx_ref(m.vtx('d'));
    EXPECT_EQ(topo_update(&m.err, &m.ctx), stage_ok);
    m.expect_sound();
    EXPECT_EQ(m.ctx.tr_count, 2u);
    EXPECT_EQ(m.nbrs("acd"), "abc - -");
}

// Each object of a leaf against all behind it, as one would write it without any thought of speed.
static void plain_mark_duplicates(mesh_fixture* m)
{
    const std::uint32_t stamp = ++m->ctx.visit_stamp;
    walk_leaves(m->ctx.root, everywhere, [&](cell_node& leaf) {
        for (std::uint32_t i = 0; i < leaf.list.count; ++i) {
            cell_obj& x = rec(list_at(leaf.list, i));
            if (x.stamp == stamp) continue;
            x.stamp = stamp;
            for (std::uint32_t k = i + 1; k < leaf.list.count; ++k) {
                cell_obj& y = rec(list_at(leaf.list, k));
                if (y.stamp == stamp || !tr_same_vertices(rec(x.tr), rec(y.tr))) continue;
                if (!(rec(x.tr).flags & tr_dup) && !(rec(y.tr).flags & tr_dup))
                    rec(x.tr).flags |= rec(y.tr).flags |= tr_dup;
                y.stamp = stamp;
            }
        }
        return true;
    });
}

TEST(topology, duplicates_are_those_of_comparing_all)
{
    for (unsigned seed = 1; seed < 40; ++seed) {
        SCOPED_TRACE(seed);
        std::vector<std::uint64_t> flags[2];
        for (int fast = 0; fast < 2; ++fast) {
            topo_mesh m(random_points(seed, 6), random_trs(seed, 6, 2 * seed));
            if (fast) {
                rec(m.trs[0]).flags |= tr_dup | tr_prob_17; // of an earlier turn
                EXPECT_EQ(mark_duplicates(&m.ctx), stage_ok);
                EXPECT_EQ(m.flag_count(tr_prob_17), 0u);
            } else {
                plain_mark_duplicates(&m);
            }
            for (const tr_h t : m.trs)
                flags[fast].push_back(rec(t).flags & tr_dup);
        }
        ASSERT_EQ(flags[0], flags[1]);
    }
}

TEST(topology, hook_refuses_points_only)
{
    mesh_fixture m("a 0 0 0  b 1e-38 0 0  c 0 1e-38 0  d 2e-38 0 0  e 1 0 0", "abc abd aeb");
    EXPECT_TRUE(tr_is_point(m.ctx.root, m.obj("abc")));
    EXPECT_FALSE(tr_is_point(m.ctx.root, m.obj("abd")));
    EXPECT_FALSE(tr_is_point(m.ctx.root, m.obj("aeb")));
    m.ctx.insert_hook = tr_is_point;
    m.fill_tree();
    EXPECT_EQ(m.ctx.tr_count, 2u);
    EXPECT_TRUE(m.counts_are_exact());
}

TEST(topology, random_soups_end_sound)
{
    for (unsigned seed = 1; seed < 60; ++seed) {
        SCOPED_TRACE(seed);
        topo_mesh m(random_points(seed, 3 + seed % 20), random_trs(seed, 3 + seed % 20, seed),
                    soup);
        m.set_merge_tol(seed % 2 ? 0.25f : 0.125f);
        build(&m);
        EXPECT_EQ(topo_update(&m.err, &m.ctx), stage_ok);
        m.expect_sound();
    }
}

} // namespace velmora
