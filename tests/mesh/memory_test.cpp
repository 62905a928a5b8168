#include "mesh/large_block.h"
#include "mesh/memory.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <string>

namespace velmora {

namespace {

// What one call writes to the log when its first try finds no memory.
template <class call_fn> std::string log_of(const call_fn& call)
{
    testing::internal::CaptureStderr();
    heap_fail_nth(1);
    call();
    return testing::internal::GetCapturedStderr();
}

// A low-memory hook that has something to spare a given number of times.
struct spare {
    int left;
    int asked;

    static bool give(void* arg)
    {
        auto* s = static_cast<spare*>(arg);
        ++s->asked;
        return s->left-- > 0;
    }
};

struct memory : testing::Test {
    void TearDown() override
    {
        heap_fail_nth(0);
        mm_clear_hooks();
    }
};

bool all_zero(const unsigned char* bytes, std::size_t n)
{
    return std::all_of(bytes, bytes + n, [](unsigned char b) { return b == 0; });
}

constexpr const char* k_malloc_text = "mm_malloc: no more memory available\n";
constexpr const char* k_realloc_text = "mm_realloc: no more memory available\n";

} // namespace

TEST_F(memory, guarded_memory_is_clear_though_it_was_used)
{
    constexpr std::size_t size = 4096;
    for (int i = 0; i < 3; ++i) {
        void* start = i == 0 ? mm_realloc(nullptr, 0, size) : mm_malloc(size);
        ASSERT_NE(start, nullptr);
        EXPECT_TRUE(all_zero(static_cast<unsigned char*>(start), size));
        std::memset(start, 0xA5, size);
        auto* bytes = static_cast<unsigned char*>(mm_realloc(start, size / 2, 2 * size));
        ASSERT_NE(bytes, nullptr);
        EXPECT_EQ(bytes[size / 2 - 1], 0xA5);
        EXPECT_TRUE(all_zero(bytes + size / 2, 2 * size - size / 2));
        std::memset(bytes, 0xA5, 2 * size);
        heap_free(bytes);
    }
}

TEST_F(memory, failure_is_told_by_the_guarded_door_alone)
{
    EXPECT_EQ(log_of([] { EXPECT_EQ(heap_alloc(8), nullptr); }), "");
    EXPECT_EQ(log_of([] { EXPECT_EQ(mm_malloc(0), nullptr); }), "");
    EXPECT_EQ(log_of([] { EXPECT_EQ(mm_malloc(8), nullptr); }), k_malloc_text);
    auto* old = static_cast<char*>(mm_malloc(8));
    old[7] = 'x';
    EXPECT_EQ(log_of([&] { EXPECT_EQ(mm_realloc(old, 8, 16), nullptr); }), k_realloc_text);
    EXPECT_EQ(old[7], 'x');
    heap_free(old);
}

TEST_F(memory, hooks_are_asked_until_none_has_anything_to_spare)
{
    spare a = {1, 0};
    spare b = {1, 0};
    ASSERT_TRUE(mm_add_hook(spare::give, &a));
    ASSERT_TRUE(mm_add_hook(spare::give, &b));
    void* got = nullptr;
    EXPECT_EQ(log_of([&] { got = mm_malloc(8); }), "");
    EXPECT_NE(got, nullptr);
    EXPECT_EQ(heap_calls(), 2u);
    EXPECT_EQ(b.asked, 1); // though the first one was enough
    heap_free(got);
    EXPECT_EQ(log_of([&] { got = mm_realloc(nullptr, 0, 8); }), k_realloc_text);
    EXPECT_EQ(got, nullptr);
}

TEST_F(memory, large_blocks_serve_again_at_any_size)
{
    constexpr std::size_t mb = 1 << 20;
    for (const std::size_t size : {3 * mb, 3 * mb - 7, mb, 9 * mb, 40 * mb, 2 * mb}) {
        void* cleared = mm_malloc(size);
        auto* grown = static_cast<unsigned char*>(heap_realloc(cleared, size + mb));
        ASSERT_NE(grown, nullptr);
        EXPECT_TRUE(all_zero(grown, size));
        std::memset(grown, 0xA5, size + mb);
        void* other = heap_alloc(size / 2);
        ASSERT_NE(other, nullptr);
        std::memset(other, 0x5A, size / 2);
        EXPECT_EQ(grown[size + mb - 1], 0xA5);
        heap_free(other);
        heap_free(grown);
    }
    EXPECT_EQ(heap_blocks(), 0u);
    drop_large_blocks();
    EXPECT_FALSE(drop_large_blocks());
}

} // namespace velmora
