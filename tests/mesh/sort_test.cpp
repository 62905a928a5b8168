#include "mesh/sort.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace velmora {

namespace {

struct item {
    float key;
    std::size_t place; // before the sort

    friend bool operator==(const item& a, const item& b) = default;
};

bool by_key(const item& a, const item& b)
{
    return a.key < b.key;
}

std::vector<item> random_items(std::size_t n, unsigned keys)
{
    std::mt19937 random(static_cast<unsigned>(n));
    std::vector<item> items;
    for (std::size_t i = 0; i < n; ++i)
        items.push_back({static_cast<float>(random() % keys), i});
    return items;
}

std::vector<item> sorted(std::vector<item> items)
{
    std::vector<item> tmp(items.size());
    merge_sort(items.data(), tmp.data(), items.size(), by_key);
    return items;
}

} // namespace

// Around the length of a run that is sorted by insertion, and around its doublings.
TEST(merge_sort, keeps_equal_keys_in_order_at_every_length)
{
    for (const std::size_t n : {0u, 1u, 2u, 15u, 16u, 17u, 31u, 32u, 33u, 48u, 64u, 65u, 1000u})
        for (const unsigned keys : {1u, 3u, 1000u}) {
            std::vector<item> expected = random_items(n, keys);
            std::stable_sort(expected.begin(), expected.end(), by_key);
            EXPECT_EQ(sorted(random_items(n, keys)), expected) << n << " of " << keys;
        }
}

TEST(merge_sort, ends_with_all_items_though_the_comparison_is_no_order)
{
    std::vector<item> items = random_items(500, 50);
    for (std::size_t i = 0; i < items.size(); i += 7)
        items[i].key = std::nanf("");
    std::vector<std::size_t> places;
    for (const item& i : sorted(items))
        places.push_back(i.place);
    std::sort(places.begin(), places.end());
    for (std::size_t i = 0; i < places.size(); ++i)
        ASSERT_EQ(places[i], i);
    // Insertion never brings a key past one that equals it, so 1 stays behind 2.
    const std::vector<item> three = sorted({{2.0f, 0}, {std::nanf(""), 1}, {1.0f, 2}});
    EXPECT_EQ(three[2].place, 2u);
}

} // namespace velmora
