#include "mesh/vec.h"
#include "plg/split.h"

#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace velmora {

// A polygon as text: a letter is a point, equal letters are equal points; 'o' and 'O' are the two
// zeros, '?' is no number. Each point has its place as its weight, each segment its number.
static plg_point point_of_letter(char letter, std::size_t place)
{
    const float z = letter == 'O'   ? -0.0f
                    : letter == 'o' ? 0.0f
                    : letter == '?' ? std::numeric_limits<float>::quiet_NaN()
                                    : static_cast<float>(letter) * 0.125f;
    return {{1.0f, 0.5f, z}, static_cast<float>(place), k_traced_point};
}

// Lists the polygons in the order in which they are given.
static plg_cell* make_list(const std::vector<std::string>& texts)
{
    plg_cell* list = nullptr;
    std::uint32_t seg = 0;
    for (std::size_t t = texts.size(); t-- > 0;) {
        plg_rec* plg = &plg_list_push(&list)->plg;
        for (std::size_t i = 0; i < texts[t].size(); ++i) {
            EXPECT_TRUE(plg_add_point(plg, point_of_letter(texts[t][i], i)));
            EXPECT_TRUE(i == 0 || plg_add_seg(plg, {++seg}));
        }
    }
    return list;
}

namespace {

// The same by the plainest means: all pairs of points, and back to the head after each cut.
struct plain_plg {
    std::vector<plg_point> points;
    std::vector<std::uint32_t> segs;
    bool pending = true;
};

void plain_copy(const plain_plg& from, std::size_t first, std::size_t last, plain_plg* to)
{
    for (std::size_t i = first; i <= last && i < from.points.size(); ++i) {
        to->points.push_back(from.points[i]);
        if (to->points.size() > 1) to->segs.push_back(from.segs[i - 1]);
    }
}

bool plain_split(const plain_plg& plg, plain_plg* rest, plain_plg* loop)
{
    const std::size_t n = plg.points.size();
    for (std::size_t i = 0; i + 3 <= n; ++i)
        for (std::size_t j = i + 2; j + 2 <= n; ++j) {
            if (!pts_same(plg.points[i].pnt, plg.points[j].pnt)) continue;
            plain_copy(plg, 0, i, rest);
            plain_copy(plg, j + 1, n - 1, rest);
            plain_copy(plg, i, j, loop);
            return true;
        }
    return false;
}

void plain_split_all(std::vector<plain_plg>* list)
{
    for (std::size_t at = 0; at < list->size();) {
        plain_plg rest;
        plain_plg loop;
        const bool did = (*list)[at].pending && plain_split((*list)[at], &rest, &loop);
        if (!did) {
            (*list)[at++].pending = false;
            continue;
        }
        list->erase(list->begin() + static_cast<std::ptrdiff_t>(at));
        list->insert(list->begin(), rest);
        list->insert(list->begin(), loop);
        at = 0;
    }
}

std::vector<plain_plg> plain_of(const plg_cell* list)
{
    std::vector<plain_plg> all;
    for (; list; list = list->next) {
        plain_plg plg;
        for (std::uint32_t i = 0; i < list->plg.points.count; ++i)
            plg.points.push_back(list->plg.points[i]);
        for (std::uint32_t i = 0; i < list->plg.segs.count; ++i)
            plg.segs.push_back(list->plg.segs[i].source.i);
        all.push_back(plg);
    }
    return all;
}

std::vector<std::string> random_texts(std::mt19937* random)
{
    static const char alphabet[] = "?oOabcdefghijklmnpqrstuvwxyz";
    std::vector<std::string> texts(1 + (*random)() % 5);
    for (std::string& text : texts) {
        const std::size_t kinds = 2 + (*random)() % (sizeof alphabet - 3);
        const std::size_t from = (*random)() % 4;
        text.resize((*random)() % 60);
        for (char& c : text)
            c = alphabet[(from + (*random)() % kinds) % (sizeof alphabet - 1)];
        if (text.size() > 2 && (*random)() % 4 != 0) text.back() = text.front();
    }
    return texts;
}

} // namespace

TEST(split, gives_what_comparing_all_pairs_gives)
{
    std::mt19937 random(7);
    std::size_t cuts = 0;
    for (int round = 0; round < 3000; ++round) {
        const std::vector<std::string> texts = random_texts(&random);
        plg_cell* list = make_list(texts);
        std::vector<plain_plg> expected = plain_of(list);
        plain_split_all(&expected);
        auto count = static_cast<std::int32_t>(texts.size());
        ASSERT_TRUE(plg_split_all(&list, &count));
        const std::vector<plain_plg> found = plain_of(list);
        plg_list_free(&list);

        ASSERT_EQ(count, static_cast<std::int32_t>(expected.size())) << round;
        ASSERT_EQ(found.size(), expected.size()) << round;
        for (std::size_t p = 0; p < found.size(); ++p) {
            ASSERT_EQ(found[p].segs, expected[p].segs) << round;
            ASSERT_EQ(found[p].points.size(), expected[p].points.size()) << round;
            for (std::size_t i = 0; i < found[p].points.size(); ++i)
                ASSERT_EQ(found[p].points[i].weight, expected[p].points[i].weight) << round;
        }
        cuts += expected.size() - texts.size();
    }
    EXPECT_GT(cuts, 10000u);
}

// A garland: a closed walk over the places 0, 1, 2, ... that takes a detour of three points at
// every third of them. Comparing all pairs would take hours.
TEST(split, long_polygons_take_no_longer_per_point)
{
    constexpr std::uint32_t k_places = 300000;
    plg_cell* list = nullptr;
    for (int p = 0; p < 3; ++p) {
        plg_rec* plg = &plg_list_push(&list)->plg;
        for (std::uint32_t i = 0; i <= k_places; ++i) {
            const float x = static_cast<float>(i % k_places);
            ASSERT_TRUE(plg_add_point(plg, {{x, 0.0f, 0.0f}, 0.0f, k_traced_point}));
            for (int detour = 0; i % 3 == 1 && detour < 3; ++detour)
                ASSERT_TRUE(plg_add_point(
                    plg, {{x, detour == 2 ? 0.0f : 1.0f + static_cast<float>(detour), 0.0f},
                          0.0f,
                          k_traced_point}));
        }
        for (std::uint32_t i = 1; i < plg->points.count; ++i)
            ASSERT_TRUE(plg_add_seg(plg, {i}));
    }
    std::int32_t count = 3;
    EXPECT_TRUE(plg_split_all(&list, &count));
    EXPECT_EQ(count, 3 + static_cast<std::int32_t>(k_places));
    plg_list_free(&list);
}

} // namespace velmora
