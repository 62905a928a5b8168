#include "mesh/tolerances.h"
#include "plg/plg.h"

#include <gtest/gtest.h>

namespace velmora {

static plg_point point_at(float x)
{
    return {{x, 0.0f, 0.0f}, 0.0f, k_traced_point};
}

TEST(polygon, grows_at_both_ends_in_any_turn)
{
    plg_cell* list = nullptr;
    plg_rec* plg = &plg_list_push(&list)->plg;
    for (int i = 1; i <= 100; ++i) {
        const auto n = static_cast<std::uint32_t>(i);
        ASSERT_TRUE(plg_add_point(plg, point_at(static_cast<float>(i))));
        ASSERT_TRUE(plg_add_seg(plg, {n}));
        if (i % 3 != 0) continue;
        ASSERT_TRUE(plg_insert_point(plg, point_at(static_cast<float>(-i))));
        ASSERT_TRUE(plg_insert_seg(plg, {n}));
    }
    ASSERT_EQ(plg->points.count, 133u);
    ASSERT_EQ(plg->segs.count, 133u);
    EXPECT_EQ(plg->points[0].pnt[0], -99.0f);
    EXPECT_EQ(plg->segs[0].source.i, 99u);
    for (std::uint32_t i = 1; i < 133; ++i) {
        EXPECT_LT(plg->points[i - 1].pnt[0], plg->points[i].pnt[0]);
        EXPECT_EQ(plg->segs[i].source.i, i < 33 ? 99 - 3 * i : i - 32);
    }
    EXPECT_LE(plg->points.capacity, 4 * plg->points.count);
    plg_list_free(&list);
    EXPECT_EQ(list, nullptr);
}

struct closed_case {
    const char* name;
    std::uint32_t count;
    float last;
    bool closed;
};

static const closed_case closed_cases[] = {
    {"nothing", 0, 0.0f, false},
    {"two equal points", 2, 0.0f, false},
    {"three points, the same end", 3, 0.0f, true},
    {"exactly at the tolerance", 3, 0.125f, true},
    {"past the tolerance", 3, 0.1875f, false},
};

TEST(polygon, is_closed_from_three_points_on_within_the_tolerance)
{
    merge_tol = 0.125f;
    for (const closed_case& c : closed_cases) {
        SCOPED_TRACE(c.name);
        plg_cell* list = nullptr;
        plg_rec* plg = &plg_list_push(&list)->plg;
        for (std::uint32_t i = 0; i < c.count; ++i)
            ASSERT_TRUE(plg_add_point(plg, point_at(i + 1 == c.count ? c.last : 3.0f * (i == 1))));
        EXPECT_EQ(plg_is_closed(*plg), c.closed);
        plg_list_free(&list);
    }
    merge_tol = k_default_merge_tol;
}

} // namespace velmora
