#include "mesh/cell_tree.h"
#include "mesh_fixture.h"
#include "random_trs.h"
#include "repair/edge_sort.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace velmora {

namespace {

struct sorted_table {
    edge_sort table;
    explicit sorted_table(mesh_fixture* m)
    {
        obj_list objs = {};
        std::uint32_t count = 0;
        ++m->ctx.visit_stamp;
        EXPECT_TRUE(tree_collect(m->ctx.root, &objs, &count, &m->ctx));
        EXPECT_TRUE(edge_sort_build(objs, &table));
        EXPECT_TRUE(edge_sort_run(&table));
        list_free(&objs);
    }
    ~sorted_table()
    {
        edge_sort_free(&table);
    }
};

// What the keys say, one pair of corners at a time.
bool goes_before(const edge_sort& t, std::uint32_t a, std::uint32_t b)
{
    const int own = edge_compare_ends(t, a, b);
    return own != 0 ? own < 0 : edge_compare_ends(t, edge_twin(a), edge_twin(b)) < 0;
}

void expect_stable_order(const edge_sort& t)
{
    std::vector<std::uint32_t> expected(t.count);
    for (std::uint32_t r = 0; r < t.count; ++r)
        expected[r] = r;
    std::stable_sort(expected.begin(), expected.end(),
                     [&](std::uint32_t a, std::uint32_t b) { return goes_before(t, a, b); });
    for (std::uint32_t place = 0; place < t.count; ++place) {
        ASSERT_EQ(t.sorted[place], expected[place]) << "at place " << place;
        ASSERT_EQ(t.live[t.sorted[place]], place + 1);
        if (place == 0) continue;
        const std::uint32_t r = t.sorted[place];
        const std::uint32_t before = t.sorted[place - 1];
        const bool own = edge_same_end(t, before, r);
        const bool both = own && edge_same_end(t, edge_twin(before), edge_twin(r));
        ASSERT_EQ(edge_own_end(t, place - 1) != place, own);
        ASSERT_EQ(edge_pair_end(t, place - 1) != place, both);
    }
}

} // namespace

TEST(edge_sort, ranks_order_as_comparisons_do)
{
    for (unsigned seed = 1; seed < 60; ++seed) {
        SCOPED_TRACE(seed);
        mesh_fixture m(random_points(seed, 3 + seed / 2), random_trs(seed, 3 + seed / 2, 4 * seed),
                       seed % 2 ? soup : shared_corners);
        sorted_table s(&m);
        EXPECT_TRUE(s.table.ordered);
        expect_stable_order(s.table);
    }
}

TEST(edge_sort, zeros_infinities_and_negatives_rank_as_floats)
{
    const float inf = std::numeric_limits<float>::infinity();
    mesh_fixture m({{0.0f, 1, 2},
                    {-0.0f, 1, 2},
                    {-1e-45f, 1, 2},
                    {1e-45f, -0.0f, 2},
                    {1e-45f, 0.0f, 2},
                    {-3e38f, 0, 0},
                    {inf, 0, 0},
                    {-inf, 0, 0}},
                   {{0, 2, 5}, {1, 3, 6}, {4, 2, 7}, {0, 4, 6}, {1, 5, 7}, {3, 6, 7}, {1, 2, 3}});
    sorted_table s(&m);
    EXPECT_TRUE(s.table.ordered);
    expect_stable_order(s.table);
}

TEST(edge_sort, nan_falls_back_to_comparing)
{
    const float nan = std::nanf("");
    mesh_fixture m({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {nan, 0, 0}}, {{0, 1, 2}, {1, 0, 3}}, soup);
    sorted_table s(&m);
    EXPECT_FALSE(s.table.ordered);
    std::vector<std::uint32_t> places(s.table.sorted, s.table.sorted + s.table.count);
    std::sort(places.begin(), places.end());
    for (std::uint32_t r = 0; r < s.table.count; ++r) {
        EXPECT_EQ(places[r], r);
        EXPECT_TRUE(edge_is_live(s.table, r));
    }
}

TEST(edge_sort, walks_pass_over_what_was_taken_out)
{
    mesh_fixture m("a 0 0 0  b 1 0 0  c 0 1 0", "abc");
    sorted_table s(&m);
    edge_take_out(&s.table, s.table.sorted[1]);
    edge_take_out(&s.table, s.table.sorted[2]);
    EXPECT_EQ(edge_next_live(s.table, 0), 3u);
    edge_take_out(&s.table, s.table.sorted[5]);
    EXPECT_EQ(edge_next_live(s.table, 4), 6u);
}

} // namespace velmora
