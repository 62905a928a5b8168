#include "mesh/tolerances.h"
#include "mesh/vec.h"
#include "mesh_fixture.h"
#include "plg/boundary.h"
#include "plg/plg.h"
#include "plg/tr_edges.h"

#include <cmath>
#include <gtest/gtest.h>
#include <string>

namespace velmora {

namespace {

// A mesh, and the polygons that were made of it.
struct traced_mesh : mesh_fixture {
    using mesh_fixture::mesh_fixture;

    ~traced_mesh()
    {
        plg_list_free(&topo.plg_list);
    }

    /// The polygons, front to back, by the letters of their points' vertices.
    std::string polygons() const
    {
        std::string all;
        for (const plg_cell* c = topo.plg_list; c; c = c->next) {
            if (!all.empty()) all += ' ';
            for (std::uint32_t i = 0; i < c->plg.points.count; ++i)
                all += letter_at(c->plg.points[i].pnt);
        }
        return all;
    }

    char letter_at(const float* p) const
    {
        for (std::size_t t = 0; t < trs.size(); ++t)
            for (int i = 0; i < 3; ++i)
                if (pts_same(corner_pos(rec(trs[t]), i), p))
                    return names[t][static_cast<std::size_t>(i)];
        return '?';
    }
};

constexpr const char* k_quad = "a 0 0 0  b 1 0 0  c 0 1 0  d 1 1 0";

} // namespace

TEST(boundary, points_lead_back_to_their_vertices)
{
    traced_mesh m(k_quad, "abc bdc");
    m.link("abc", "bdc");
    ASSERT_EQ(trace_boundaries(&m.err, &m.ctx), stage_ok);
    plg_rec* plg = &m.topo.plg_list->plg;
    const std::string points = m.polygons();
    for (std::uint32_t i = 0; i < plg->points.count; ++i)
        EXPECT_EQ(plg_point_vtx(plg, i), m.vtx(points[i])) << i;
    // The last point is looked for in the first triangle, also where another one gave it.
    plg->points[4] = plg->points[3];
    EXPECT_EQ(plg_point_vtx(plg, 4), vtx_h{});
    plg->points[4].pnt[0] -= 1.0f;
    plg->points[4].pnt[1] -= 0.999f;
    m.set_merge_tol(0.002f);
    EXPECT_EQ(plg_point_vtx(plg, 4), m.vtx('a'));
}

TEST(polygon, grows_at_both_ends_in_any_turn)
{
    plg_cell* list = nullptr;
    plg_rec* plg = &plg_list_push(&list)->plg;
    for (std::uint32_t i = 1; i <= 100; ++i) {
        const float x = static_cast<float>(i);
        ASSERT_TRUE(plg_add_point(plg, {{x, 0.0f, 0.0f}, 0.0f, k_traced_point}));
        ASSERT_TRUE(plg_add_seg(plg, {i}));
        if (i % 3 != 0) continue;
        ASSERT_TRUE(plg_insert_point(plg, {{-x, 0.0f, 0.0f}, 0.0f, k_traced_point}));
        ASSERT_TRUE(plg_insert_seg(plg, {i}));
    }
    ASSERT_EQ(plg->points.count, 133u);
    for (std::uint32_t i = 0; i < 133; ++i) {
        const std::uint32_t source = i < 33 ? 99 - 3 * i : i - 32;
        EXPECT_EQ(plg->segs[i].source.i, source);
        EXPECT_EQ(std::fabs(plg->points[i].pnt[0]), static_cast<float>(source));
    }
    EXPECT_LE(plg->points.capacity, 4 * plg->points.count);
    plg_list_free(&list);
}

// Of points on a line; the middle one lies far off.
TEST(polygon, is_closed_from_three_points_on_within_the_tolerance)
{
    struct {
        std::uint32_t count;
        float last;
        bool closed;
    } const cases[] = {
        {0, 0, false}, {2, 0, false}, {3, 0, true}, {3, 0.125f, true}, {3, 0.1875f, false}};
    merge_tol = 0.125f;
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        plg_cell* list = nullptr;
        plg_rec* plg = &plg_list_push(&list)->plg;
        for (std::uint32_t i = 0; i < c.count; ++i) {
            const float x = i + 1 == c.count ? c.last : 3.0f * static_cast<float>(i);
            ASSERT_TRUE(plg_add_point(plg, {{x, 0.0f, 0.0f}, 0.0f, k_traced_point}));
        }
        EXPECT_EQ(plg_is_closed(*plg), c.closed);
        plg_list_free(&list);
    }
    merge_tol = k_default_merge_tol;
}

struct join_case {
    const char* name;
    const char* closed_edges; ///< of the triangle abc: 0 is ab, 1 is bc, 2 is ca
    const char* points;       ///< of the polygon that was "a"
    plg_direction direction;
    bool complains;
};

static const join_case join_cases[] = {
    {"forward over one edge", "12", "ab", plg_at_end, false},
    {"forward over two", "2", "abc", plg_at_end, false},
    {"all edges are open", "", "abca", plg_at_end, true},
    {"backward over one edge", "01", "ac", plg_at_end, false},
    {"backward over two", "0", "acb", plg_at_end, false},
    {"no boundary leaves", "02", "a", plg_at_end, false},
    {"at the start", "2", "cba", plg_at_start, false},
    {"backward at the start", "0", "bca", plg_at_start, false},
    {"all open at the start", "", "acba", plg_at_start, true},
};

TEST(tr_edges, boundary_runs_over_the_open_edges_from_the_corner)
{
    for (const join_case& c : join_cases) {
        SCOPED_TRACE(c.name);
        traced_mesh m(k_quad, "abc bdc");
        for (const char* edge = c.closed_edges; *edge; ++edge)
            m.at("abc").nbr[*edge - '0'] = m.tr("bdc");
        plg_rec* plg = &plg_list_push(&m.topo.plg_list)->plg;
        ASSERT_TRUE(plg_add_point(plg, {{0.0f, 0.0f, 0.0f}, 0.0f, k_traced_point}));
        testing::internal::CaptureStderr();
        EXPECT_TRUE(plg_add_tr(m.obj("abc"), c.direction, plg, &m.ctx));
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  c.complains ? "add_tr_edges_to_plg: ERROR, self intersecting polygon\n" : "");
        EXPECT_EQ(m.polygons(), c.points);
        EXPECT_EQ(plg->segs.count + 1, plg->points.count);
        EXPECT_EQ(rec(m.obj("abc")).stamp, m.ctx.visit_stamp);
    }
}

} // namespace velmora
