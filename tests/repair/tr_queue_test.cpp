#include "repair/tr_queue.h"

#include <deque>
#include <gtest/gtest.h>
#include <random>

namespace velmora {

TEST(tr_queue, empty_queue_gives_none)
{
    tr_queue q = {};
    EXPECT_FALSE(tr_queue_pop(&q));
    EXPECT_EQ(q.count, 0u);
    ASSERT_TRUE(tr_queue_push_front(&q, tr_h{7}));
    EXPECT_EQ(tr_queue_pop(&q), tr_h{7});
    EXPECT_FALSE(tr_queue_pop(&q));
    ASSERT_TRUE(tr_queue_push(&q, tr_h{8}));
    tr_queue_clear(&q);
    EXPECT_FALSE(tr_queue_pop(&q));
    tr_queue_free(&q);
}

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

TEST(tr_queue, failed_push_leaves_the_queue)
{
    tr_queue q = {};
    for (std::uint32_t i = 1; i <= 8; ++i)
        ASSERT_TRUE(tr_queue_push(&q, tr_h{i}));
    heap_fail_nth(1);
    EXPECT_FALSE(tr_queue_push(&q, tr_h{9}));
    heap_fail_nth(1);
    EXPECT_FALSE(tr_queue_push_front(&q, tr_h{9}));
    heap_fail_nth(0);
    for (std::uint32_t i = 1; i <= 8; ++i)
        EXPECT_EQ(tr_queue_pop(&q).i, i);
    tr_queue_free(&q);
}

} // namespace velmora
