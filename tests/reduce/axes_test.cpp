#include "mesh/vec.h"
#include "reduce/axes.h"
#include "reduce_fixture.h"

#include <cmath>
#include <gtest/gtest.h>

namespace velmora {

TEST(axis_label, takes_normals_within_a_cosine_of_an_axis_once)
{
    reduce_mesh m("a 0 0 0  b 1 0 0  c 0 1 0", "abc");
    tr_rec& tr = m.at("abc");
    const auto label = [&](int axis, float component) {
        vec_set(tr.nrm, 0.0f, 0.0f, 0.0f);
        tr.nrm[axis] = component;
        label_tr_axes(&m.ctx);
        return tr.plane_class;
    };
    for (int axis = 0; axis < 3; ++axis) {
        tr.plane_class = 0;
        EXPECT_EQ(label(axis, 0.9999f), 0); // the float lies below the limit, the next one above
        EXPECT_EQ(label(axis, std::nextafter(0.9999f, 1.0f)), 100 * (axis + 1));
        tr.plane_class = 0;
        EXPECT_EQ(label(axis, -1.0f), 100 * (axis + 1) + 1);
    }
    EXPECT_EQ(label(0, 1.0f), 301); // stays when the triangle turns
}

struct fan_label_case {
    std::vector<std::int16_t> labels;
    int expected;
};

static const fan_label_case fan_label_cases[] = {
    {{}, k_no_axis},        {{0, 0, 0}, k_no_axis},     {{100, 100, 101}, k_all_one_axis},
    {{101, 100, 200}, 101}, {{100, 0, 100}, 100},       {{0, 0, 200, 0}, 200},
    {{0, 100, 300}, 100},   {{0, 100, 101}, k_no_axis},
};

TEST(fan_axis_label, tells_faces_from_their_rims)
{
    reduce_mesh m(k_hexagon_points, k_hexagon_trs);
    for (const fan_label_case& c : fan_label_cases) {
        for (std::size_t i = 0; i < c.labels.size(); ++i)
            rec(m.trs[i]).plane_class = c.labels[i];
        const auto count = static_cast<std::uint32_t>(c.labels.size());
        EXPECT_EQ(fan_axis_label({m.trs.data(), count}), c.expected) << &c - fan_label_cases;
    }
}

} // namespace velmora
