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

    kite(float c_height, float d_depth, float d_lift = 0.0f)
        : m({{0, 0, 0}, {4, 0, 0}, {2, c_height, 0}, {2, -d_depth, d_lift}}, {{0, 1, 2}, {1, 0, 3}})
    {
        link_all(&m);
        for (const tr_h t : m.trs)
            tr_recompute_nrm(&rec(t), true, nullptr);
    }
    stage_result repair(double ratio = 0.1, double angle_tol = 0.9)
    {
        return repair_thin_triangles(ratio, angle_tol, &counts, &m.err, &m.ctx);
    }
};

struct turn_case {
    const char* name;
    float c_height; // of the first triangle over the edge of length 4
    float d_depth;  // of the second below it
    float d_lift;   // how far its tip lies off the plane
    thin_counts counts;
    bool replaced;
};

// Turning gives two triangles over the edge c-d, each 2 high. A thin triangle that was replaced is
// met and counted all the same.
const turn_case turn_cases[] = {
    {"both sound", 1.0f, 1.0f, 0.0f, {0, 0, 0}, false},
    {"one thin, two sound ones made", 0.25f, 3.0f, 0.0f, {1, 1, 0}, true},
    {"exactly at the ratio is sound", 0.5f, 3.0f, 0.0f, {0, 0, 0}, false},
    {"both thin", 0.25f, 0.375f, 0.0f, {2, 2, 0}, true},
    {"not in one plane", 0.25f, 3.0f, 3.0f, {1, 0, 0}, false},
    {"both thin, turned ones no better", 0.25f, 80.0f, 0.0f, {2, 0, 0}, false},
};

TEST(thin_repair, turns_the_diagonal_where_that_helps)
{
    for (const turn_case& c : turn_cases) {
        SCOPED_TRACE(c.name);
        kite k(c.c_height, c.d_depth, c.d_lift);
        EXPECT_EQ(k.repair(0.125), stage_ok);
        EXPECT_EQ(k.counts.found, c.counts.found);
        EXPECT_EQ(k.counts.fixed, c.counts.fixed);
        EXPECT_EQ(k.counts.third, 0u);
        EXPECT_EQ(rec(k.m.trs[0]).refs, c.replaced ? 0u : 1u);
        EXPECT_EQ(k.m.tr_count(), 2u);
        EXPECT_EQ(k.m.ctx.tr_count, 2u);
        EXPECT_EQ(k.m.flag_count(tr_nrm_done), 2u);
    }
}

TEST(thin_repair, gives_the_new_triangles_the_old_winding_and_a_life_of_their_own)
{
    kite k(0.25f, 3.0f);
    EXPECT_EQ(k.repair(), stage_ok);
    std::vector<tr_h> made;
    for_each_obj_once(&k.m.ctx, [&](obj_h, const cell_obj& obj) {
        made.push_back(obj.tr);
        return true;
    });
    ASSERT_EQ(made.size(), 2u);
    count_audit audit;
    ASSERT_TRUE(audit_open(&audit, &k.m.ctx));
    for (const tr_h t : made) {
        EXPECT_EQ(rec(t).nrm[2], 1.0f);
        EXPECT_EQ(rec(t).flags, tr_nrm_done);
        EXPECT_EQ(tr_nbr_count(rec(t)), 0);
        EXPECT_EQ(rec(t).refs, 2u);
        EXPECT_GT(rec(t).id, 2u);
        audit_tr(&audit, t);
    }
    EXPECT_EQ(audit_close(&audit, stderr), 0u);
}

// Somebody holds the partner, which was deleted and then linked again.
TEST(thin_repair, passes_over_a_partner_that_has_left_the_mesh)
{
    kite k(0.25f, 3.0f);
    const tr_h gone = tr_ref(k.m.trs[1]);
    tr_delete(gone, &k.m.ctx);
    link_all(&k.m);
    EXPECT_EQ(k.repair(), stage_ok);
    EXPECT_EQ(k.counts.found, 1u);
    EXPECT_EQ(k.counts.fixed, 0u);
    EXPECT_EQ(k.m.ctx.tr_count, 1u);
    tr_release(gone);
}

TEST(thin_repair, takes_one_gain_of_two_when_both_are_thin)
{
    // Both tips lie near p, so the triangle on its side of the new diagonal stays thin.
    mesh_fixture m("a 0 0 0  p 4 0 0  c 3.75 0.25 0  d 3.75 -0.25 0", "apc pad");
    link_all(&m);
    for (const tr_h t : m.trs)
        tr_recompute_nrm(&rec(t), true, nullptr);
    thin_counts counts = {};
    EXPECT_EQ(repair_thin_triangles(0.3, 0.9, &counts, &m.err, &m.ctx), stage_ok);
    EXPECT_EQ(counts.found, 2u);
    EXPECT_EQ(counts.fixed, 1u);
}

TEST(thin_repair, passes_over_the_degenerate_but_takes_it_for_a_partner)
{
    kite k(0.25f, 0.375f, 0.0f);
    rec(k.m.trs[1]).flags |= tr_no_nrm;
    vec_set(rec(k.m.trs[1]).nrm, 0, 0, 0); // no normal, so no angle to test
    EXPECT_EQ(k.repair(0.125, 0.9), stage_ok);
    EXPECT_EQ(k.counts.found, 1u);
    EXPECT_EQ(k.counts.fixed, 2u);
}

// Kites in a row, each apart from the next.
solid kites(int count)
{
    solid s;
    for (int i = 0; i < count; ++i) {
        const float x = 5.0f * static_cast<float>(i);
        s.points.insert(s.points.end(),
                        {{x, 0, 0}, {x + 4, 0, 0}, {x + 2, 0.25f, 0}, {x + 2, -3, 0}});
        s.trs.push_back({4 * i, 4 * i + 1, 4 * i + 2});
        s.trs.push_back({4 * i + 1, 4 * i, 4 * i + 3});
    }
    return s;
}

TEST(thin_repair, goes_on_when_leaves_split_under_it)
{
    const solid s = kites(30);
    mesh_fixture m(s.points, s.trs);
    link_all(&m);
    for (const tr_h t : m.trs)
        tr_recompute_nrm(&rec(t), true, nullptr);
    set_limits(&m, 2, 10);
    thin_counts counts = {};
    EXPECT_EQ(repair_thin_triangles(0.1, 0.9, &counts, &m.err, &m.ctx), stage_ok);
    EXPECT_EQ(counts.found, 30u);
    EXPECT_EQ(counts.fixed, 30u);
    EXPECT_EQ(m.tr_count(), 60u);
    EXPECT_EQ(m.ctx.tr_count, 60u);
}

// Kites over each other, across a tree so deep that most cells stay folded.
struct folded_kites {
    mesh_fixture m;
    thin_counts counts = {};

    folded_kites() : m(points(), kites(k_kites).trs)
    {
        link_all(&m);
        for (const tr_h t : m.trs)
            tr_recompute_nrm(&rec(t), true, nullptr);
        set_limits(&m, 2, 10);
        if (tree_renew(&m.ctx) != renew_done) std::abort();
    }
    static std::vector<mesh_fixture::point> points()
    {
        std::vector<mesh_fixture::point> all;
        for (int i = 0; i < k_kites; ++i) {
            const float z = 0.001f * static_cast<float>(i);
            const float at[4][2] = {{0, 0}, {4, 4}, {1.75f, 2.25f}, {4, 0}};
            for (const auto& p : at)
                all.push_back({p[0], p[1], z + p[0]});
        }
        return all;
    }
    static constexpr int k_kites = 20;
};

TEST(thin_repair, is_done_or_tells_that_it_is_not_wherever_memory_runs_out)
{
    std::uint64_t calls = 1;
    for (std::uint64_t nth = 0; nth <= calls; nth += 1 + calls / 30) {
        SCOPED_TRACE(nth);
        folded_kites k;
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
