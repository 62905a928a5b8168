#include "mesh/measure.h"
#include "mesh/vec.h"
#include "reduce_fixture.h"

#include <gtest/gtest.h>
#include <random>

namespace velmora {

struct gate_case {
    std::int32_t mode;
    double dist_tol, min_edge, max_edge;
    char target; ///< of M, 'M' it stays
};

// Of a vertex inside a flat upright sheet, with every other tolerance on.
static const gate_case gate_cases[] = {
    {mode_dist, 0.1, 0, 0, 'H'},
    {mode_dist, 0, 9, 9, 'M'},
    {mode_short, 0, 1.25, 0, 'N'},
    {mode_short, 9, 0, 9, 'M'},
    {mode_short, 0, 1, 0, 'M'}, // an edge of the bound stays
    {mode_max, 0, 0, 2.3, 'H'},
    {mode_max, 9, 9, 0, 'M'},
    {mode_max, 0, 0, 2.2, 'M'},  // from H to R are sqrt(5)
    {mode_aspect, 9, 9, 9, 'M'}, // nothing is bad
    {5, 9, 9, 9, 'M'},
};

TEST(pass, runs_when_its_mode_and_tolerance_say_so)
{
    for (const gate_case& c : gate_cases) {
        SCOPED_TRACE(&c - gate_cases);
        reduce_mesh m(sheet_points(5, true), sheet_trs(5));
        m.params = {c.dist_tol, 0.9, 0.99, 0.0, c.max_edge, c.min_edge, 0.0, c.mode};
        m.classify();
        m.only("M"); // a locked neighbour is no target of the plane pass in mode 1
        if (c.mode == mode_dist) m.type('H') = vtx_no_normal;
        const pass_counts counts = m.reduce();
        EXPECT_EQ(m.target('M'), c.target);
        EXPECT_EQ(m.all_of(vtx_removed), c.target == 'M' ? "" : "M");
        EXPECT_EQ(counts.plane, c.target == 'H' ? 1u : 0u);
        EXPECT_EQ(counts.short_edge, c.target == 'N' ? 1u : 0u);
        EXPECT_EQ(counts.degen + counts.line, 0u);
        EXPECT_TRUE(m.holders_are_exact());
    }
}

TEST(pass, leaves_what_its_kind_must_not_touch)
{
    for (const char* what : {"", "no normal", "on the grid", "a crease", "one triangle"}) {
        reduce_mesh m(sheet_points(5), sheet_trs(5));
        m.params.dist_tol = 0.1;
        m.classify();
        m.only("M");
        m.type('H') = vtx_no_normal;
        const std::string name = what;
        if (name == "no normal") m.type('M') = vtx_no_normal;
        if (name == "on the grid") m.type('M') = vtx_on_grid;
        if (name == "a crease") m.info('M').fan_dot_min = m.params.angle_tol;
        if (name == "one triangle") m.info('M').fan_count = 1;
        EXPECT_EQ(m.reduce().plane, name.empty() ? 1u : 0u) << name;
        EXPECT_EQ(m.type('M') == vtx_locked, name == "a crease");
    }
}

struct target_case {
    const char* name;
    const char* raised; ///< the mesh is less flat there
    const char* free;   ///< not locked
    char target;
};

// The fan of M is GHM GML LMR MSR MNS HNM; B lies beyond its first triangle, F beyond the second.
static const target_case target_cases[] = {
    {"all flat: the first triangle's nearer end", "", "GHLRSN", 'H'},
    {"the nearer one is locked", "", "GLRSN", 'G'},
    {"both ends locked, others no better", "", "LRSN", 'M'},
    {"flatter further on", "B", "GHLRSN", 'L'},
    {"flatter, but locked", "B", "HRSN", 'H'},
    {"at equal lengths the one ahead", "BF", "GHLRSN", 'R'},
    {"at equal lengths the one that is free", "BF", "L", 'L'},
};

TEST(plane_pass, goes_where_the_mesh_is_flattest)
{
    for (const target_case& c : target_cases) {
        reduce_mesh m(sheet_points(5), sheet_trs(5));
        for (const char* p = c.raised; *p; ++p)
            m.move(*p, 0, 0, 0.5f);
        m.params.dist_tol = 0.1;
        m.classify();
        m.only("M");
        for (const char* p = c.free; *p; ++p)
            m.type(*p) = vtx_no_normal;
        m.reduce();
        EXPECT_EQ(m.target('M'), c.target) << c.name;
        EXPECT_EQ(m.type('M'), c.target == 'M' ? vtx_closed : vtx_removed) << c.name;
    }
}

// The height goes through single precision, where it is a quarter exactly.
TEST(plane_pass, distance_bound_is_closed)
{
    for (const std::int32_t mode : {mode_dist, mode_max}) {
        for (const double tol : {0.25, 0.2499}) {
            reduce_mesh m(sheet_points(5), sheet_trs(5));
            m.move('M', 0, 0, 0.25f);
            m.params = {tol, -1.0, k_no_angle_limit, 0.0, 5.0, 0.0, 0.0, mode};
            m.classify();
            vec_set(m.info('M').nrm, 0.0f, 0.0f, 1.0f);
            m.only("M");
            m.type('H') = vtx_no_normal;
            EXPECT_EQ(m.reduce().plane, tol == 0.25 ? 1u : 0u);
        }
    }
}

struct short_case {
    const char* name;
    bool upright;
    double min_edge, grid;
    char target;
};

// M lies a quarter off its place on the grid, towards S.
static const short_case short_cases[] = {
    {"ahead, nearest", true, 2.0, 0.0, 'N'},
    {"shorter than the shortest ahead", true, 0.75, 0.0, 'M'},
    {"only onto the grid", true, 2.0, 1.0, 'N'},
    {"nothing lies on the grid", true, 2.0, 0.7, 'M'},
    {"nothing is ahead on a horizontal face", false, 2.0, 0.0, 'M'},
};

TEST(short_edge_pass, goes_ahead_of_the_normal_only)
{
    for (const short_case& c : short_cases) {
        reduce_mesh m(sheet_points(5, c.upright), sheet_trs(5));
        m.move('M', 0.25f, c.upright ? 0 : 0.25f, c.upright ? 0.25f : 0);
        m.params.mode = mode_short;
        m.params.min_edge = c.min_edge;
        m.params.grid = c.grid;
        m.classify();
        m.only("M");
        m.reduce();
        EXPECT_EQ(m.target('M'), c.target) << c.name;
    }
}

TEST(degenerate_pass, needs_a_longest_edge_and_a_fan_without_area)
{
    for (const double longest : {0.0, 1.0, 1.5}) {
        reduce_mesh m("o 0 0 0  a 1 0 0  b -2 0 0", "oab oba");
        m.params.mode = 5; // this pass runs in any
        m.params.max_edge = longest;
        m.classify();
        m.only("o");
        EXPECT_EQ(m.reduce().degen, longest == 1.5 ? 1u : 0u);
        EXPECT_EQ(m.target('o'), longest == 1.5 ? 'a' : 'o');
        EXPECT_EQ(m.type('o'), longest == 1.5 ? vtx_removed : vtx_closed);
        EXPECT_TRUE(m.holders_are_exact());
    }
    reduce_mesh m(k_hexagon_points, k_hexagon_trs);
    m.params.max_edge = 9.0;
    m.classify();
    m.only("o");
    for (const char* name : {"oab", "obc", "ocd", "ode", "oef"})
        m.at(name).flags |= tr_no_nrm;
    EXPECT_EQ(m.reduce().degen, 0u);
}

// When J and Y stand first in the table, O and T are locked by their turn, and lock N no more.
TEST(boundary, locks_its_neighbours_in_table_order)
{
    const std::string usual = sheet_trs(5);
    std::string other = "JDE YST " + usual;
    for (const char* twice : {"DEJ ", "STY "})
        other.erase(other.find(twice), 4);
    for (const std::string& trs : {usual, other}) {
        for (const std::int32_t mode : {mode_dist, mode_aspect}) {
            reduce_mesh m(sheet_points(5), trs);
            m.params.mode = mode;
            m.classify();
            ASSERT_EQ(m.all_of(vtx_open).size(), 16u);
            m.reduce();
            EXPECT_EQ(m.type('N') == vtx_locked, trs == usual && mode == mode_dist);
            EXPECT_NE(m.type('M'), vtx_locked);
            EXPECT_EQ(m.all_of(vtx_locked).size() == 16u, mode == mode_aspect);
        }
    }
}

TEST(grid, overrides_the_locks_of_the_boundary_but_not_later_ones)
{
    reduce_mesh m(sheet_points(5), sheet_trs(5));
    m.params.grid = 2.0; // lines cross at A C E K M O U W Y; X, which follows W, locks it
    m.classify();
    m.reduce();
    EXPECT_EQ(m.all_of(vtx_on_grid), "ACEKMOUY");
}

struct sweep_case {
    const char* name;
    float squeeze; ///< of the sheet, along x
    reduce_params params;
};

static const sweep_case sweep_cases[] = {
    {"mode 1", 1.0f, {0.2, 0.8, 0.95, 0.2, 0.0, 0.0, 0.0, mode_dist}},
    {"mode 2", 1.0f, {0.0, 0.8, k_no_angle_limit, 0.0, 0.0, 1.2, 0.0, mode_short}},
    {"mode 3", 1.0f, {0.2, 0.8, k_no_angle_limit, 0.0, 3.0, 0.0, 0.0, mode_max}},
    {"mode 4", 0.25f, {0.5, 0.8, 0.94, 0.0, 0.0, 0.0, 0.0, mode_aspect}},
};

// What holds for every removal, on a bumpy sheet.
TEST(removal, takes_two_triangles_folds_nothing_over_and_locks_all_around)
{
    for (const sweep_case& c : sweep_cases) {
        SCOPED_TRACE(c.name);
        std::mt19937 random(1);
        reduce_mesh m(sheet_points(7), sheet_trs(7));
        for (std::uint32_t i = 1; i < vtx_pool.used; ++i) {
            float* pos = rec(vtx_h{i}).pos;
            for (int k = 0; k < 3; ++k)
                pos[k] += 0.02f * static_cast<float>(random() % 16);
            pos[0] *= c.squeeze;
        }
        m.fill_tree();
        m.params = c.params;
        m.classify();
        const pass_counts counts = m.reduce();
        const std::string gone = m.all_of(vtx_removed);
        EXPECT_GT(gone.size(), 0u);
        const bool is_counted = c.params.mode != mode_aspect;
        EXPECT_EQ(counts.line + counts.plane + counts.short_edge, is_counted ? gone.size() : 0);
        for (const char letter : gone)
            for (const tr_h t : fan_of(m.table, m.info(letter)))
                for (const vtx_h v : rec(t).vtx)
                    EXPECT_EQ(m.table.types[rec(v).tbl_index - 1], vtx_locked) << letter;
        std::size_t dead = 0;
        for (const tr_h t : m.trs) {
            EXPECT_TRUE(tr_collapsed(rec(t)) || rec(t).nrm[2] > 0.0f);
            dead += tr_collapsed(rec(t)) ? 1 : 0;
        }
        EXPECT_EQ(dead, 2 * gone.size());
        EXPECT_TRUE(m.holders_are_exact());
    }
}

} // namespace velmora
