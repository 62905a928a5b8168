#include "mesh/vec.h"
#include "plg/plg.h"
#include "reduce/normals.h"
#include "reduce_fixture.h"

#include <cmath>
#include <gtest/gtest.h>

namespace velmora {

namespace {

void expect_nrm(const float* nrm, float x, float y, float z, float within = 0.0f)
{
    EXPECT_NEAR(nrm[0], x, within);
    EXPECT_NEAR(nrm[1], y, within);
    EXPECT_NEAR(nrm[2], z, within);
}

// A floor in front of o that ends in a wall going down.
struct brink : reduce_mesh {
    brink()
        : reduce_mesh("o 0 0 0  n 0 1 0  p -1 1 0  w -1 0 0  q -1 -1 0  s 0 -1 0  t 0 0 -1",
                      "onp opw owq oqs ost otn")
    {
        enter(); // fan of o: onp otn ost oqs owq opw
    }
};

// The two triangles of o face each other's backs.
constexpr const char* k_leaf_points = "o 0 0 0  a 1 0 0  b 0 1 0";
constexpr const char* k_leaf_trs = "oab oba";

// A polygon through the points named; "." is a point far from every vertex. The last point is
// looked up in the triangle of the first.
void add_polygon(reduce_mesh* m, const std::string& letters)
{
    plg_rec* plg = &plg_list_push(&m->topo.plg_list)->plg;
    for (std::size_t i = 0; i < letters.size(); ++i) {
        const bool nowhere = letters[i] == '.';
        std::size_t t = 0;
        while (!nowhere && m->names[t].find(letters[i]) == std::string::npos)
            ++t;
        plg_point point = {{99.0f, 99.0f, 99.0f}, 0.0f, k_traced_point};
        if (!nowhere) vec_copy(rec(m->vtx(letters[i])).pos, point.pnt);
        ASSERT_TRUE(plg_add_point(plg, point));
        if (i + 1 == letters.size()) return;
        ASSERT_TRUE(plg_add_seg(plg, rec(m->trs[t]).cell));
    }
}

} // namespace

TEST(vtx_normal, counts_each_direction_once)
{
    brink m;
    vtx_nrm_all(&m.table);
    expect_nrm(m.info('o').nrm, 0.70710677f, 0, 0.70710677f, 1e-6f);
    EXPECT_EQ(m.type('o'), vtx_closed);
    m.at("ost").flags |= tr_no_nrm; // stands for both triangles of the wall, and does not count
    vtx_nrm_all(&m.table);
    expect_nrm(m.info('o').nrm, 0, 0, 1);
}

TEST(vtx_normal, is_none_where_the_fan_cancels_out)
{
    reduce_mesh m(k_leaf_points, k_leaf_trs);
    m.enter();
    vec_set(m.info('o').nrm, 1.0f, 0.0f, 0.0f);
    vtx_nrm_all(&m.table);
    EXPECT_EQ(m.type('o'), vtx_no_normal);
    expect_nrm(m.info('o').nrm, 0, 0, 0);
}

// x lies on the edge bc: its only triangle has no area.
TEST(boundary_normal, is_borrowed_by_a_vertex_without_any)
{
    reduce_mesh m("a 0 0 0  b 4 0 0  c 0 4 0  x 2 2 0", "abc bxc");
    m.classify();
    for (const char letter : std::string("abcx"))
        expect_nrm(m.info(letter).nrm, 0, 0, 1);
    EXPECT_EQ(m.all_of(vtx_open), "abcx");
}

TEST(boundary_normal, adds_to_what_the_vertex_had)
{
    reduce_mesh m("a 0 0 0  b 4 0 0  c 0 4 0  d 4 4 0", "abc bdc");
    m.enter();
    vec_set(m.info('b').nrm, 1.0f, 0.0f, 0.0f);
    m.type('d') = vtx_unset;
    add_polygon(&m, "abdc"); // open: its end stays as it is
    add_polygon(&m, "c");
    plg_vtx_nrm_all(m.topo);
    expect_nrm(m.info('a').nrm, 0, 0, 1);
    expect_nrm(m.info('b').nrm, 0.4472136f, 0, 0.8944272f, 1e-6f);
    EXPECT_EQ(m.type('d'), vtx_no_normal);
    expect_nrm(m.info('c').nrm, 0, 0, 0);
}

TEST(boundary_normal, is_lent_by_nobody_who_failed)
{
    reduce_mesh m("a 0 0 0  b 4 0 0  c 0 4 0  x 2 2 0  y 1 3 0", "abc xyc");
    m.enter();
    vec_set(m.info('a').nrm, 0.0f, 0.0f, -1.0f); // takes the fan's normal away
    add_polygon(&m, "a.xya");
    plg_vtx_nrm_all(m.topo);
    EXPECT_EQ(m.all_of(vtx_no_normal), "axy");
    expect_nrm(m.info('x').nrm, 0, 0, 0);
}

TEST(boundary_normal, search_ends_where_no_vertex_has_any)
{
    for (const bool b_is_listed : {true, false}) {
        reduce_mesh m("a 0 0 0  b 4 0 0  c 8 0 0", "abc");
        m.enter();
        if (!b_is_listed) rec(m.vtx('b')).tbl_index = 0;
        add_polygon(&m, "abca");
        plg_vtx_nrm_all(m.topo);
        EXPECT_EQ(m.all_of(vtx_no_normal), b_is_listed ? "abc" : "ac");
    }
}

// Of one triangle only one round is left, which flips; of the leaf no normal is good.
TEST(corrected_normal, is_what_it_was_when_none_is_found)
{
    for (const char* trs : {"oab", k_leaf_trs}) {
        reduce_mesh m(k_leaf_points, trs);
        m.enter();
        vec_set(m.info('o').nrm, 0.0f, 0.6f, -0.8f);
        get_nrm4vtx(m.table, &m.info('o'));
        expect_nrm(m.info('o').nrm, 0, 0.6f, -0.8f);
    }
}

TEST(corrected_normal, is_pushed_out_of_a_triangle_that_it_turns_its_back_on)
{
    brink m;
    vec_set(m.info('o').nrm, 0.6f, 0.0f, -0.8f);
    get_nrm4vtx(m.table, &m.info('o'));
    // Pushed to (0.6, 0, 1e-6) and made unit, then 0.7071 along z; another step would overshoot.
    expect_nrm(m.info('o').nrm, 0.8164985f, 0, 0.5773474f, 1e-6f);
}

struct step_case {
    const char* name;
    const char* q; ///< with o and p spans the second face
    float shift;
    float nrm[3]; ///< to be made unit
    float x, z;
};

// A floor triangle and the triangle opq. Their planes are met where the tips of the normals lie,
// taken as points of the mesh.
static const step_case step_cases[] = {
    {"a wall alongside: the whole step", "0 0 1", 0, {0.9f, 0, 0.2f}, 0.726242f, 0.687439f},
    {"half way to a plane near by", "4 0 3", 0.5f, {1, 0, 0.1f}, 0.983038f, 0.183400f},
    {"a plane out of reach", "3 0 4", 0, {1, 0, 0.1f}, 0.815142f, 0.579262f},
    {"the step is no good", "4 0 3", -10, {1, 0, 0.1f}, 0.995037f, 0.0995037f},
    {"good enough: no step", "-1 0 0", 0, {0.6f, 0, 0.8f}, 0.6f, 0.8f},
};

TEST(corrected_normal, steps_towards_the_triangle_seen_worst)
{
    for (const step_case& c : step_cases) {
        SCOPED_TRACE(c.name);
        reduce_mesh m(std::string("o 0 0 0  a 1 0 0  p 0 1 0  q ") + c.q, "oap opq");
        for (const char letter : std::string("oapq"))
            m.move(letter, c.shift, 0, 0);
        m.enter();
        vec_copy(c.nrm, m.info('o').nrm);
        vec_unit(m.info('o').nrm);
        get_nrm4vtx(m.table, &m.info('o'));
        expect_nrm(m.info('o').nrm, c.x, 0, c.z, 2e-6f);
    }
}

// Two walls lean back from it alike, to its left and to its right; the floor it sees.
TEST(corrected_normal, is_pushed_by_the_first_of_equally_bad_triangles)
{
    for (const float first : {1.0f, -1.0f}) {
        reduce_mesh m("o 0 0 0  a 1 0 0  b 0 1 0  c -1 0 0  d 0 -1 0", "oab obc ocd");
        m.enter();
        ASSERT_EQ(m.fan('o'), "ocd obc oab");
        vec_set(m.at("obc").nrm, -0.8f, 0.6f * first, 0.0f);
        vec_set(m.at("oab").nrm, -0.8f, -0.6f * first, 0.0f);
        vec_set(m.info('o').nrm, 0.6f, 0.0f, 0.8f);
        get_nrm4vtx(m.table, &m.info('o'));
        // From the first into the second's plane, then a step along the second's normal.
        EXPECT_LT(m.info('o').nrm[1] * first, -0.1f);
    }
}

TEST(corrected_normal, is_given_up_with_a_message_above_a_thousand_triangles)
{
    for (const int count : {1000, 1001}) {
        std::vector<mesh_fixture::point> points = {{0, 0, 0}};
        std::vector<mesh_fixture::corners> trs;
        for (int i = 0; i < count; ++i) {
            const double angle = 2.0 * k_pi * i / count;
            points.push_back(
                {static_cast<float>(std::cos(angle)), static_cast<float>(std::sin(angle)), 0.0f});
            trs.push_back({0, 1 + i, 1 + (i + 1) % count});
        }
        reduce_mesh m(points, trs);
        m.enter();
        vtx_info& hub = m.table.infos[0];
        vec_set(hub.nrm, 0.0f, 0.0f, -1.0f); // to be turned over
        testing::internal::CaptureStderr();
        get_nrm4vtx(m.table, &hub);
        const char* message = "get_nrm4vtx: over 1000 trs with one vertex, 1001, no check\n";
        EXPECT_EQ(testing::internal::GetCapturedStderr(), count == 1000 ? "" : message);
        EXPECT_EQ(hub.nrm[2], count == 1000 ? 1.0f : -1.0f);
    }
}

} // namespace velmora
