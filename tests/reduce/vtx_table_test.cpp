#include "mesh/vec.h"
#include "reduce_fixture.h"

#include <gtest/gtest.h>

namespace velmora {

struct dev_case {
    const char* name;
    const char* points; ///< b and c
    float nrm_z;
    double dev;
};

static const dev_case dev_cases[] = {
    {"the first edge", "b 1 0 .5  c 0 1 .25", 1.0f, 0.5},
    {"the last edge, below", "b 1 0 .25  c 0 1 -.5", 1.0f, 0.5},
    {"an edge without direction", "b 0 0 .0000001  c 0 1 0", 1.0f, 0.0},
    {"no normal yet", "b 1 0 .5  c 0 1 .25", 0.0f, 0.0},
};

TEST(vtx_dev, is_the_largest_height_over_the_edges)
{
    for (const dev_case& c : dev_cases) {
        reduce_mesh m(std::string("a 0 0 0 ") + c.points, "abc");
        m.enter();
        vec_set(m.info('a').nrm, 0.0f, 0.0f, c.nrm_z);
        m.info('a').dev = 77.0;
        vtx_dev_all(&m.table);
        EXPECT_EQ(m.info('a').dev, c.dev) << c.name;
    }
}

TEST(vtx_table_sort, keeps_table_order_among_equals_and_leaves_out_the_fanless)
{
    reduce_mesh m(sheet_points(7), sheet_trs(7));
    m.enter();
    for (std::uint32_t i = 0; i < m.table.count; ++i) {
        m.table.infos[i].dev = static_cast<double>(i * 7 % 4);
        if (i % 5 == 2) m.table.infos[i].fan_count = 0;
    }
    std::vector<std::uint32_t> expected;
    for (const std::uint32_t dev : {0, 1, 2, 3})
        for (std::uint32_t i = 0; i < m.table.count; ++i)
            if (i * 7 % 4 == dev && i % 5 != 2) expected.push_back(i);
    ASSERT_EQ(vtx_table_sort(&m.table), stage_ok);
    const std::uint32_t* sorted = m.table.sorted;
    EXPECT_EQ(std::vector(sorted, sorted + m.table.sorted_count), expected);
}

} // namespace velmora
