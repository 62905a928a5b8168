#include "mesh/cell_tree.h"
#include "mesh/memory.h"
#include "mesh_fixture.h"
#include "plg/boundary.h"
#include "plg/plg.h"
#include "plg/tr_edges.h"

#include <gtest/gtest.h>
#include <string>

namespace velmora {

namespace {

// A mesh whose common edges are linked, and what the tracing makes of it.
struct traced_mesh : mesh_fixture {
    using mesh_fixture::mesh_fixture;

    ~traced_mesh()
    {
        plg_list_free(&topo.plg_list);
    }

    /// Links the triangles listed as "abc-cbd ...".
    void link_all(const std::string& pairs)
    {
        for (std::size_t at = 0; at < pairs.size(); at += 8)
            link(pairs.substr(at, 3), pairs.substr(at + 4, 3));
    }

    bool trace()
    {
        return trace_boundaries(&err, &ctx) == stage_ok;
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

    /// The triangles of the front polygon's segments.
    std::string sources() const
    {
        std::string all;
        const plg_rec& plg = topo.plg_list->plg;
        for (std::uint32_t i = 0; i < plg.segs.count; ++i)
            all += (all.empty() ? "" : " ") + name(rec(plg.segs[i].source).tr);
        return all;
    }

    char letter_at(const float* p) const
    {
        for (std::size_t t = 0; t < trs.size(); ++t)
            for (int i = 0; i < 3; ++i) {
                const float* c = corner_pos(rec(trs[t]), i);
                if (c[0] == p[0] && c[1] == p[1] && c[2] == p[2])
                    return names[t][static_cast<std::size_t>(i)];
            }
        return '?';
    }
};

constexpr const char* k_quad = "a 0 0 0  b 1 0 0  c 0 1 0  d 1 1 0";

//   g--h--i      The middle of a plate of 3 x 3 points is open at e: four quads round it, of which
//   |  |  |      the two at c and g are left out.
//   d--e--f
//   |  |  |
//   a--b--c
constexpr const char* k_plate = "a 0 0 0  b 1 0 0  c 2 0 0  d 0 1 0  e 1 1 0  f 2 1 0  "
                                "g 0 2 0  h 1 2 0  i 2 2 0";

} // namespace

TEST(boundary, points_lead_back_to_their_vertices)
{
    traced_mesh m(k_quad, "abc bdc");
    m.link("abc", "bdc");
    ASSERT_TRUE(m.trace());
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

TEST(boundary, lone_triangles_are_listed_and_start_nothing)
{
    traced_mesh m("a 0 0 0  b 1 0 0  c 0 1 0  d 1 1 0  e 5 0 0  f 6 0 0  g 5 1 0", "efg abc bdc");
    m.link("abc", "bdc");
    EXPECT_TRUE(m.trace());
    EXPECT_EQ(m.topo.lone_count, 1);
    ASSERT_EQ(m.topo.lone_list.count, 1u);
    EXPECT_EQ(m.name(rec(list_at(m.topo.lone_list, 0)).tr), "efg");
    EXPECT_EQ(m.topo.plg_count, 1);
    EXPECT_EQ(m.at("efg").flags & (tr_prob_31 | tr_on_boundary), 0u);
    EXPECT_TRUE(m.counts_are_exact());
}

TEST(boundary, rim_that_passes_a_vertex_twice_is_split_there)
{
    traced_mesh m(k_plate, "abe aed efi eih");
    m.link_all("abe-aed efi-eih");
    EXPECT_TRUE(m.trace());
    // One walk round both quads, cut at e: each loop stands as a polygon of its own.
    EXPECT_EQ(m.topo.plg_count, 2);
    for (const plg_cell* c = m.topo.plg_list; c; c = c->next) {
        EXPECT_EQ(c->plg.points.count, 5u);
        EXPECT_TRUE(plg_is_closed(c->plg));
    }
    EXPECT_EQ(m.flag_count(tr_on_boundary), 4u);
}

// Across the gap the triangles are neighbours, but their corners lie apart: b against e, c against
// f. The boundary is not followed over it however small it is, since only equal places join.
TEST(boundary, gap_stays_open)
{
    for (const float gap : {0.25f, 1e-7f}) {
        traced_mesh m("a 0 0 0  b 1 0 0  c 0 1 0  d 1 1 0  e 1 0 0  f 0 1 0", "abc edf");
        m.move('e', 0.0f, 0.0f, gap);
        m.move('f', 0.0f, 0.0f, gap);
        m.at("abc").nbr[1] = m.tr("edf");
        m.at("edf").nbr[2] = m.tr("abc");
        EXPECT_TRUE(m.trace());
        EXPECT_EQ(m.polygons(), "edf cab");
        EXPECT_EQ(m.topo.plg_count, 2);
    }
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
