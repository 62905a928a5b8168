#include "linked.h"
#include "mesh/folded_cells.h"
#include "mesh/tree_renew.h"
#include "repair/thin.h"

#include <gtest/gtest.h>

namespace velmora {
namespace {

// The thin triangle a-p-c over the long edge a-p, and p-a-d below it.
struct kite {
    mesh_fixture m;
    thin_counts counts = {};

    kite(mesh_fixture::point c, mesh_fixture::point d)
        : m({{0, 0, 0}, {4, 0, 0}, c, d}, {{0, 1, 2}, {1, 0, 3}})
    {
        link_with_normals(&m);
    }
    stage_result repair(double ratio = 0.1)
    {
        return repair_thin_triangles(ratio, 0.9, &counts, &m.err, &m.ctx);
    }
};

struct turn_case {
    const char* name;
    mesh_fixture::point c;
    mesh_fixture::point d;
    std::uint32_t found;
    std::uint32_t fixed;
};

// Turning gives two triangles over the edge c-d, each 2 high if it lies in the middle. A thin
// triangle that was replaced is met and counted all the same.
const turn_case turn_cases[] = {
    {"both sound", {2, 1, 0}, {2, -1, 0}, 0, 0},
    {"one thin, two sound ones made", {2, 0.25f, 0}, {2, -3, 0}, 1, 1},
    {"exactly at the ratio is sound", {2, 0.5f, 0}, {2, -3, 0}, 0, 0},
    {"both thin", {2, 0.25f, 0}, {2, -0.375f, 0}, 2, 2},
    {"both thin, one stays so at a", {3.875f, 0.125f, 0}, {3.875f, -0.125f, 0}, 2, 1},
    {"not in one plane", {2, 0.25f, 0}, {2, -3, 3}, 1, 0},
    {"both thin, turned ones no better", {2, 0.25f, 0}, {2, -80, 0}, 2, 0},
};

TEST(thin_repair, turns_the_diagonal_where_that_helps)
{
    for (const turn_case& c : turn_cases) {
        SCOPED_TRACE(c.name);
        kite k(c.c, c.d);
        EXPECT_EQ(k.repair(0.125), stage_ok);
        EXPECT_EQ(k.counts.found, c.found);
        EXPECT_EQ(k.counts.fixed, c.fixed);
        EXPECT_EQ(k.counts.third, 0u);
        EXPECT_EQ(rec(k.m.trs[0]).refs, c.fixed != 0 ? 0u : 1u);
        EXPECT_EQ(k.m.tr_count(), 2u);
        EXPECT_EQ(k.m.ctx.tr_count, 2u);
        EXPECT_EQ(k.m.flag_count(tr_nrm_done), 2u);
    }
}

TEST(thin_repair, gives_the_new_triangles_the_old_winding_and_a_life_of_their_own)
{
    kite k({2, 0.25f, 0}, {2, -3, 0});
    EXPECT_EQ(k.repair(), stage_ok);
    count_audit audit;
    ASSERT_TRUE(audit_open(&audit, &k.m.ctx));
    for_each_obj_once(&k.m.ctx, [&](obj_h, const cell_obj& obj) {
        const tr_rec& tr = rec(obj.tr);
        EXPECT_EQ(tr.nrm[2], 1.0f);
        EXPECT_EQ(tr.flags, tr_nrm_done);
        EXPECT_EQ(tr_nbr_count(tr), 0);
        EXPECT_EQ(tr.refs, 2u);
        EXPECT_GT(tr.id, 2u);
        audit_tr(&audit, obj.tr);
        return true;
    });
    EXPECT_EQ(k.m.tr_count(), 2u);
    EXPECT_EQ(audit_close(&audit, stderr), 0u);
}

// Somebody holds the partner, which was deleted and then linked again.
TEST(thin_repair, passes_over_a_partner_that_has_left_the_mesh)
{
    kite k({2, 0.25f, 0}, {2, -3, 0});
    const tr_h gone = tr_ref(k.m.trs[1]);
    tr_delete(gone, &k.m.ctx);
    k.m.link_all();
    EXPECT_EQ(k.repair(), stage_ok);
    EXPECT_EQ(k.counts.found, 1u);
    EXPECT_EQ(k.counts.fixed, 0u);
    EXPECT_EQ(k.m.ctx.tr_count, 1u);
    tr_release(gone);
}

TEST(thin_repair, passes_over_the_degenerate_but_takes_it_for_a_partner)
{
    kite k({2, 0.25f, 0}, {2, -0.375f, 0});
    rec(k.m.trs[1]).flags |= tr_no_nrm;
    vec_set(rec(k.m.trs[1]).nrm, 0, 0, 0); // no normal, so no angle to test
    EXPECT_EQ(k.repair(0.125), stage_ok);
    EXPECT_EQ(k.counts.found, 1u);
    EXPECT_EQ(k.counts.fixed, 2u);
}

// Kites with these corners, each moved from the one before by as much.
struct kites {
    mesh_fixture m;
    thin_counts counts = {};

    kites(int count, const std::vector<mesh_fixture::point>& at, float dx, float dz)
        : kites(make(count, at, dx, dz))
    {
    }
    explicit kites(const solid& s) : m(s.points, s.trs)
    {
        link_with_normals(&m);
        set_limits(&m, 2, 10);
    }
    static solid make(int count, const std::vector<mesh_fixture::point>& at, float dx, float dz)
    {
        solid s;
        for (int i = 0; i < count; ++i) {
            const auto times = static_cast<float>(i);
            for (const mesh_fixture::point& p : at)
                s.points.push_back({p[0] + times * dx, p[1], p[2] + times * dz});
            s.trs.push_back({4 * i, 4 * i + 1, 4 * i + 2});
            s.trs.push_back({4 * i + 1, 4 * i, 4 * i + 3});
        }
        return s;
    }
};

TEST(thin_repair, goes_on_when_leaves_split_under_it)
{
    kites k(30, {{0, 0, 0}, {4, 0, 0}, {2, 0.25f, 0}, {2, -3, 0}}, 5.0f, 0.0f);
    EXPECT_EQ(repair_thin_triangles(0.1, 0.9, &k.counts, &k.m.err, &k.m.ctx), stage_ok);
    EXPECT_EQ(k.counts.found, 30u);
    EXPECT_EQ(k.counts.fixed, 30u);
    EXPECT_EQ(k.m.tr_count(), 60u);
    EXPECT_EQ(k.m.ctx.tr_count, 60u);
}

// Above each other, across a tree so deep that most cells stay folded.
TEST(thin_repair, is_done_or_tells_that_it_is_not_wherever_memory_runs_out)
{
    std::uint64_t calls = 1;
    for (std::uint64_t nth = 0; nth <= calls; nth += 1 + calls / 30) {
        SCOPED_TRACE(nth);
        kites k(20, {{0, 0, 0}, {4, 4, 4}, {1.75f, 2.25f, 1.75f}, {4, 0, 4}}, 0.0f, 0.001f);
        ASSERT_EQ(tree_renew(&k.m.ctx), renew_done);
        ASSERT_TRUE(the_fold.used);
        heap_fail_nth(nth);
        const bool done = repair_thin_triangles(0.1, 0.5, &k.counts, &k.m.err, &k.m.ctx);
        if (nth == 0) calls = heap_calls();
        heap_fail_nth(0);
        EXPECT_EQ(k.m.err, done ? 0 : err_no_memory);
        EXPECT_TRUE(nth != 0 || done);
        if (!done) continue;
        EXPECT_EQ(k.counts.fixed, 20u);
        EXPECT_FALSE(tree_is_torn());
        EXPECT_EQ(k.m.tr_count(), 40u);
    }
}

} // namespace
} // namespace velmora
