#include "repair/tr_queue.h"

#include <deque>
#include <gtest/gtest.h>
#include <random>

namespace velmora {

TEST(tr_queue, any_mix_of_ends_keeps_the_order)
{
    std::mt19937 random(1);
    tr_queue q = {};
    std::deque<std::uint32_t> expected;
    for (std::uint32_t i = 1; i < 5000; ++i) {
        const auto what = random() % 5;
        if (what < 2) {
            ASSERT_TRUE(tr_queue_push(&q, tr_h{i}));
            expected.push_back(i);
        } else if (what == 2) {
            ASSERT_TRUE(tr_queue_push_front(&q, tr_h{i}));
            expected.push_front(i);
        } else if (!expected.empty()) {
            ASSERT_EQ(tr_queue_pop(&q).i, expected.front());
            expected.pop_front();
        }
        ASSERT_EQ(q.count, expected.size());
    }
    for (std::uint32_t i = 0; i < q.count; ++i)
        EXPECT_EQ(tr_queue_at(q, i).i, expected[i]);
    tr_queue_free(&q);
}

} // namespace velmora
