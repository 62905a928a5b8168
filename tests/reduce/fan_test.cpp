#include "mesh/box.h"
#include "mesh/cell_tree.h"
#include "mesh/measure.h"
#include "random_trs.h"
#include "reduce/fan.h"
#include "reduce_fixture.h"

#include <gtest/gtest.h>
#include <random>

namespace velmora {

namespace {

struct fan_case {
    const char* name;
    const char* triangles;
    char vtx;
    const char* fan;
    vtx_type type;
};

const fan_case fan_cases[] = {
    {"closed", k_hexagon_trs, 'o', "oab ofa oef ode ocd obc", vtx_closed},
    {"started elsewhere", "cdo oab obc ode oef ofa", 'o', "cdo obc oab ofa oef ode", vtx_closed},
    {"windings mixed", "oba obc odc ode oef ofa", 'o', "oba obc odc ode oef ofa", vtx_closed},
    {"open, from its middle", "ocd oab obc ode oef", 'o', "oef ode ocd obc oab", vtx_open},
    {"on the rim", k_hexagon_trs, 'a', "ofa oab", vtx_open},
    {"two fans: the first found", "ocd obc oef", 'o', "ocd obc", vtx_open},
};

// In the hexagon, with oaf wound the other way, the first link of `from` leads to `to`.
struct damage_case {
    const char* name;
    const char* from;
    const char* to; ///< "" nowhere
    bool to_is_dead;
    const char* fan;
    vtx_type type;
};

const damage_case damage_cases[] = {
    {"on by its own edge", "oaf", "", false, "oaf oef ode ocd obc oab oaf", vtx_open},
    {"a stranger ends the walk", "oab", "xyz", false, "oaf oef ode ocd obc oab xyz", vtx_closed},
    {"the dead is none", "oab", "oaf", true, "oef ode ocd obc oab", vtx_open},
    {"cut at the users", "ocd", "oef", false, "oab oaf oef ode ocd oef ode ocd", vtx_closed},
};

// The first triangle at `v` that a descent with its place meets.
tr_h find_tr_at(node_h n, vtx_h v)
{
    const cell_node& node = rec(n);
    if (!pt_in_box(node.box, rec(v).pos)) return {};
    if (!is_leaf(node)) {
        const tr_h found = find_tr_at(node.low, v);
        return found ? found : find_tr_at(node.high, v);
    }
    for (const obj_h o : node.list)
        if (tr_vtx_index(v, rec(rec(o).tr)) >= 0) return rec(o).tr;
    return {};
}

} // namespace

TEST(fan, is_ordered_round_the_vertex)
{
    for (const fan_case& c : fan_cases) {
        reduce_mesh m(k_hexagon_points, c.triangles);
        m.enter();
        EXPECT_EQ(m.fan(c.vtx), c.fan) << c.name;
        EXPECT_EQ(m.type(c.vtx), c.type) << c.name;
    }
}

TEST(fan, ends_somewhere_on_damaged_links)
{
    for (const damage_case& c : damage_cases) {
        reduce_mesh m(std::string(k_hexagon_points) + "x 5 0 0  y 6 0 0  z 5 1 0",
                      "oab obc ocd ode oef oaf xyz");
        const tr_h to = *c.to ? m.tr(c.to) : tr_h{};
        links_may_dangle = c.to_is_dead;
        if (c.to_is_dead) tr_delete(to, &m.ctx);
        m.at(c.from).nbr[0] = to;
        m.enter();
        EXPECT_EQ(m.fan('o'), c.fan) << c.name;
        EXPECT_EQ(m.type('o'), c.type) << c.name;
    }
}

// Its record names another vertex by then, though the triangle beyond still has this one.
TEST(fan, of_a_removed_vertex_stays_empty)
{
    reduce_mesh m("o 0 0 0  a 1 0 0  b 0 1 0  x -1 0 0  y 0 -1 0", "oab oxy");
    m.params.mode = mode_aspect;
    m.enter();
    vtx_commit(m.site('o'), m.vtx('a'));
    m.type('o') = vtx_removed;
    vtx_table_clear_fans(&m.table);
    ASSERT_EQ(vtx_table_refresh(&m.table, &m.err, &m.ctx), stage_ok);
    EXPECT_EQ(m.target('o'), 'a');
    EXPECT_NE(m.corner("oxy", 'o'), m.vtx('a'));
    EXPECT_EQ(m.fan('o') + m.all_of(vtx_removed), "o");
    EXPECT_TRUE(m.holders_are_exact());
}

// Without links a fan is its first triangle alone. Boxes that no longer fit their triangles, as a
// repair may leave them, are part of the game.
TEST(fan, begins_where_a_descent_to_the_vertex_ends)
{
    std::mt19937 random(5);
    for (unsigned round = 0; round < 80; ++round) {
        reduce_mesh m(random_points(round, 30), random_trs(round, 30, 80));
        for (const tr_h t : m.trs)
            for (tr_h& slot : rec(t).nbr)
                slot = {};
        m.fill_tree(2 + round % 6);
        for (unsigned i = 0; i < round % 4; ++i)
            rec(rec(m.trs[random() % 80]).vtx[0]).pos[round % 3] += 0.5f;
        if (round % 2) m.ctx.longest_list = 5000; // the search goes the way of crowded trees
        m.enter();
        for (std::uint32_t i = 0; i < m.table.count; ++i) {
            const vtx_info& info = m.table.infos[i];
            const tr_h expected = find_tr_at(m.ctx.root, info.vtx);
            ASSERT_EQ(info.fan_count, expected ? 1u : 0u) << round;
            EXPECT_EQ(expected ? fan_of(m.table, info).first[0] : tr_h{}, expected) << round;
        }
    }
}

} // namespace velmora
