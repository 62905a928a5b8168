#include "mesh/memory.h"
#include "mesh/pool.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace velmora {

namespace {

// What one call writes to the log.
template <class call_fn> std::string log_of(const call_fn& call)
{
    testing::internal::CaptureStderr();
    call();
    return testing::internal::GetCapturedStderr();
}

// A low-memory hook that has something to spare a given number of times.
struct spare {
    int left;
    int asked;
    bool allocates; // and thereby runs out itself

    static bool give(void* arg)
    {
        auto* s = static_cast<spare*>(arg);
        ++s->asked;
        if (s->allocates) {
            heap_fail_nth(1);
            heap_free(mm_malloc(8));
        }
        return s->left-- > 0;
    }
};

bool all_zero(const unsigned char* bytes, std::size_t n)
{
    return std::all_of(bytes, bytes + n, [](unsigned char b) { return b == 0; });
}

struct record {
    std::uint32_t value;
    std::uint32_t rest[3];
};

} // namespace

struct memory : testing::Test {
    void TearDown() override
    {
        heap_fail_nth(0);
        mm_clear_hooks();
    }
};

TEST_F(memory, nothing_is_given_for_nothing)
{
    const std::string log = log_of([] {
        EXPECT_EQ(heap_alloc(0), nullptr);
        EXPECT_EQ(mm_malloc(0), nullptr);
        heap_free(nullptr);
    });
    EXPECT_EQ(log, "");
}

TEST_F(memory, guarded_memory_is_clear_though_it_was_used)
{
    constexpr std::size_t size = 4096;
    for (int i = 0; i < 3; ++i) {
        auto* bytes = static_cast<unsigned char*>(mm_malloc(size));
        ASSERT_NE(bytes, nullptr);
        EXPECT_TRUE(all_zero(bytes, size));
        std::memset(bytes, 0xA5, size);
        bytes = static_cast<unsigned char*>(mm_realloc(bytes, size / 2, 2 * size));
        ASSERT_NE(bytes, nullptr);
        EXPECT_EQ(bytes[size / 2 - 1], 0xA5);
        EXPECT_TRUE(all_zero(bytes + size / 2, 2 * size - size / 2));
        std::memset(bytes, 0xA5, 2 * size);
        heap_free(bytes);
    }
    auto* fresh = static_cast<unsigned char*>(mm_realloc(nullptr, 0, size));
    ASSERT_NE(fresh, nullptr);
    EXPECT_TRUE(all_zero(fresh, size));
    heap_free(fresh);
}

TEST_F(memory, failure_is_told_by_the_guarded_door_alone)
{
    const auto refuse = [](const auto& call) {
        heap_fail_nth(1);
        EXPECT_EQ(call(), nullptr);
    };
    EXPECT_EQ(log_of([&] { refuse([] { return heap_alloc(8); }); }), "");
    EXPECT_EQ(log_of([&] { refuse([] { return mm_malloc(8); }); }),
              "mm_malloc: no more memory available\n");

    auto* old = static_cast<char*>(mm_malloc(8));
    old[7] = 'x';
    EXPECT_EQ(log_of([&] { refuse([&] { return mm_realloc(old, 8, 16); }); }),
              "mm_realloc: no more memory available\n");
    EXPECT_EQ(old[7], 'x');
    heap_free(old);
}

TEST_F(memory, hooks_are_asked_until_none_has_anything_to_spare)
{
    spare a = {1, 0, false};
    spare b = {2, 0, false};
    ASSERT_TRUE(mm_add_hook(spare::give, &a));
    ASSERT_TRUE(mm_add_hook(spare::give, &b));
    heap_fail_nth(1);
    void* got = nullptr;
    EXPECT_EQ(log_of([&] { got = mm_malloc(8); }), "");
    EXPECT_NE(got, nullptr);
    EXPECT_EQ(heap_calls(), 2u);
    EXPECT_EQ(a.asked, 1);
    EXPECT_EQ(b.asked, 1); // though the first one was enough
    heap_free(got);

    a.left = b.left = 0;
    heap_fail_nth(1);
    EXPECT_EQ(log_of([&] { got = mm_realloc(nullptr, 0, 8); }),
              "mm_realloc: no more memory available\n");
    EXPECT_EQ(got, nullptr);
}

TEST_F(memory, hook_that_runs_out_itself_does_not_ask_the_hooks)
{
    spare s = {1, 0, true};
    ASSERT_TRUE(mm_add_hook(spare::give, &s));
    heap_fail_nth(1);
    void* got = nullptr;
    EXPECT_EQ(log_of([&] { got = mm_malloc(8); }), "mm_malloc: no more memory available\n");
    EXPECT_NE(got, nullptr);
    EXPECT_EQ(s.asked, 1);
    heap_free(got);
}

struct record_pool : memory {
    pool<record>* p = new pool<record>{};

    void TearDown() override
    {
        pool_empty(p);
        delete p;
        memory::TearDown();
    }
};

TEST_F(record_pool, hands_out_ascending_numbers_and_the_last_returned_first)
{
    std::vector<handle<record>> taken;
    for (std::uint32_t i = 1; i <= 4; ++i) {
        taken.push_back(pool_take(p));
        EXPECT_EQ(taken.back().i, i);
    }
    pool_give_back(p, taken[1]);
    pool_give_back(p, taken[3]);
    EXPECT_EQ(pool_take(p), taken[3]);
    EXPECT_EQ(pool_take(p), taken[1]);
    EXPECT_EQ(pool_take(p).i, 5u);
}

TEST_F(record_pool, records_stay_in_place_when_it_grows)
{
    const handle<record> first = pool_take(p);
    record* const at = &pool_at(*p, first);
    at->value = 77;
    handle<record> last = first;
    while (last.i < 2 * k_chunk_size)
        last = pool_take(p);
    pool_at(*p, last).value = 78;
    EXPECT_EQ(p->chunk_count, 3u);
    EXPECT_EQ(&pool_at(*p, first), at);
    EXPECT_EQ(at->value, 77u);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(&pool_at(*p, handle<record>{k_chunk_size})) % 64,
              0u);
}

TEST_F(record_pool, refused_chunk_leaves_it_as_it_was)
{
    heap_fail_nth(1);
    EXPECT_FALSE(pool_take(p));
    EXPECT_EQ(pool_take(p).i, 1u);
    for (std::uint32_t i = 2; i < k_chunk_size; ++i)
        ASSERT_EQ(pool_take(p).i, i);
    heap_fail_nth(1);
    EXPECT_FALSE(pool_take(p));
    EXPECT_EQ(pool_take(p).i, k_chunk_size);
}

} // namespace velmora
