// The tracing against the plainest way to do it: for each step a descent of the tree, for each leaf
// a look at all of its triangles.

#include "mesh/box.h"
#include "mesh/cell_tree.h"
#include "mesh/measure.h"
#include "mesh/vec.h"
#include "mesh_fixture.h"
#include "plg/boundary.h"
#include "plg/split.h"
#include "plg/tr_edges.h"
#include "random_trs.h"

#include <bit>
#include <gtest/gtest.h>
#include <limits>
#include <random>

namespace velmora {

namespace {

struct plain_trace {
    mesh_ctx* ctx = nullptr;
    plg_cell* list = nullptr;
    std::int32_t count = 0;
    std::vector<obj_h> lone;
    std::int32_t lone_count = 0;
    int grown_at_start = 0;

    bool lone_trs(const cell_node& leaf)
    {
        for (const obj_h o : leaf.list) {
            if (tr_nbr_count(rec(rec(o).tr)) != 0) continue;
            ++lone_count;
            if (rec(o).stamp != ctx->visit_stamp) lone.push_back(o);
            rec(o).stamp = ctx->visit_stamp;
        }
        return true;
    }

    obj_h find(node_h n, const aabb& box, const float* p) const
    {
        const cell_node& node = rec(n);
        if (!box_overlap(node.box, box)) return {};
        if (!is_leaf(node)) {
            const obj_h found = find(node.low, box, p);
            return found ? found : find(node.high, box, p);
        }
        for (const obj_h o : node.list) {
            if (rec(o).stamp == ctx->visit_stamp) continue;
            const tr_rec& tr = rec(rec(o).tr);
            for (int k = 0; k < 3; ++k)
                if (pts_same(corner_pos(tr, k), p) && corner_one_free(tr, k)) return o;
        }
        return {};
    }

    bool extend(plg_direction direction, plg_rec* plg)
    {
        while (true) {
            const std::uint32_t last = plg->points.count - 1;
            aabb box = box_of_seg(plg->points[last].pnt, plg->points[last].pnt);
            if (vec_has_nan(plg->points[last].pnt))
                for (int i = 0; i < 3; ++i)
                    box.min[i] = box.max[i] = plg->points[last].pnt[i];
            box_widen(&box, static_cast<double>(merge_tol));
            const std::uint32_t end = direction == plg_at_end ? last : 0;
            const obj_h o = find(ctx->root, box, plg->points[end].pnt);
            if (!o) return false;
            if (direction == plg_at_start) ++grown_at_start;
            EXPECT_TRUE(plg_add_tr(o, direction, plg, ctx));
            if (pts_same(plg->points[0].pnt, plg->points[plg->points.count - 1].pnt)) return true;
        }
    }

    bool polygons(const cell_node& leaf)
    {
        for (const obj_h o : leaf.list) {
            const int nbrs = tr_nbr_count(rec(rec(o).tr));
            if (rec(o).stamp == ctx->visit_stamp || nbrs == 0 || nbrs == 3) continue;
            plg_rec* plg = &plg_list_push(&list)->plg;
            ++count;
            EXPECT_TRUE(plg_add_tr(o, plg_first, plg, ctx));
            if (!extend(plg_at_end, plg)) extend(plg_at_start, plg);
        }
        return true;
    }
};

// Points on a small grid, so that many corners meet and some are not even numbers.
std::vector<mesh_fixture::point> close_points(std::mt19937* random)
{
    std::vector<mesh_fixture::point> points(20 + (*random)() % 100);
    for (mesh_fixture::point& p : points)
        for (float& x : p)
            x = static_cast<float>((*random)() % 4) - 1.0f;
    if ((*random)() % 3 == 0) points[0][1] = std::numeric_limits<float>::quiet_NaN();
    if ((*random)() % 3 == 0) points[1][0] = -0.0f;
    return points;
}

// Half of the slots hold some neighbour, answered or not: the tracing asks only whether one is
// there.
void random_links(std::mt19937* random, mesh_fixture* m)
{
    for (const tr_h t : m->trs)
        for (tr_h& slot : rec(t).nbr)
            if ((*random)() % 2) slot = m->trs[(*random)() % m->trs.size()];
}

// Corners may lie outside of the box by which their triangle stands in the tree.
void move_some_points(std::mt19937* random, mesh_fixture* m)
{
    for (int i = 0; i < 10; ++i) {
        const tr_rec& tr = rec(m->trs[(*random)() % m->trs.size()]);
        rec(tr.vtx[(*random)() % 3]).pos[(*random)() % 3] += 1.0f;
    }
}

void expect_same_list(const plg_cell* found, const plg_cell* expected)
{
    for (; found && expected; found = found->next, expected = expected->next) {
        const plg_rec& a = found->plg;
        const plg_rec& b = expected->plg;
        ASSERT_EQ(a.points.count, b.points.count);
        ASSERT_EQ(a.segs.count, b.segs.count);
        for (std::uint32_t i = 0; i < a.points.count; ++i)
            for (int k = 0; k < 3; ++k)
                ASSERT_EQ(std::bit_cast<std::uint32_t>(a.points[i].pnt[k]),
                          std::bit_cast<std::uint32_t>(b.points[i].pnt[k]));
        for (std::uint32_t i = 0; i < a.segs.count; ++i)
            ASSERT_EQ(a.segs[i].source, b.segs[i].source);
    }
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(expected, nullptr);
}

} // namespace

TEST(trace_order, is_that_of_searching_the_tree_for_each_step)
{
    std::mt19937 random(11);
    int grown_at_start = 0;
    for (unsigned round = 0; round < 150; ++round) {
        SCOPED_TRACE(round);
        const std::vector<mesh_fixture::point> points = close_points(&random);
        const auto places = static_cast<unsigned>(points.size());
        mesh_fixture m(points,
                       random_trs(round, places, static_cast<unsigned>(30 + random() % 200)));
        random_links(&random, &m);
        m.fill_tree(2 + static_cast<std::uint32_t>(random() % 20));
        if (round % 3 == 0) move_some_points(&random, &m);
        if (round % 4 == 0) merge_tol = 1.25f;
        testing::internal::CaptureStderr();

        plain_trace plain;
        plain.ctx = &m.ctx;
        ++m.ctx.visit_stamp;
        walk_leaves(m.ctx.root, everywhere, [&](cell_node& n) { return plain.lone_trs(n); });
        walk_leaves(m.ctx.root, everywhere, [&](cell_node& n) { return plain.polygons(n); });
        ASSERT_TRUE(plg_split_all(&plain.list, &plain.count));
        const std::string plain_log = testing::internal::GetCapturedStderr();
        std::size_t seen = 0; // those that stand alone, and those that joined a polygon
        for (const tr_h t : m.trs)
            seen += rec(rec(t).cell).stamp == m.ctx.visit_stamp;

        testing::internal::CaptureStderr();
        EXPECT_EQ(trace_boundaries(&m.err, &m.ctx), stage_ok);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), plain_log);
        expect_same_list(m.topo.plg_list, plain.list);
        EXPECT_EQ(m.topo.plg_count, plain.count);
        EXPECT_EQ(m.topo.lone_count, plain.lone_count);
        ASSERT_EQ(m.topo.lone_list.count, plain.lone.size());
        for (std::uint32_t i = 0; i < plain.lone.size(); ++i)
            EXPECT_EQ(m.topo.lone_list.items[i], plain.lone[i]);
        EXPECT_EQ(m.flag_count(tr_prob_31 | tr_on_boundary), seen - plain.lone.size());
        grown_at_start += plain.grown_at_start;
        plg_list_free(&plain.list);
        plg_list_free(&m.topo.plg_list);
        if (HasFatalFailure()) return;
    }
    EXPECT_GT(grown_at_start, 50);
}

} // namespace velmora
