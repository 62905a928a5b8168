#include "reduce/line.h"
#include "reduce_fixture.h"

#include <gtest/gtest.h>

namespace velmora {

// A roof with the ridge p o q along y and the eaves l m on the left, k n on the right; o is at
// y = 2 and p at 0.
static const char* const k_left_first = "olp oml oqm onq okn opk";
static const char* const k_right_first = "oqm onq okn opk olp oml";

static std::string roof_points(const char* l, const char* q)
{
    return std::string("o 0 2 1  p 0 0 1  m -1 2 0  n 1 3 0  k 1 1 0  l ") + l + " q " + q;
}

struct ridge_case {
    const char* name;
    const char* l;
    const char* q;
    const char* triangles;
    double max_edge;
    char target; ///< 'o' it stays
};

static const ridge_case ridge_cases[] = {
    {"the shorter edge", "-1 1 0", "0 3 1", k_left_first, 0, 'q'},
    {"the shorter edge, first found", "-1 1 0", "0 5 1", k_left_first, 0, 'p'},
    {"equal edges: the first found", "-1 1 0", "0 4 1", k_left_first, 0, 'p'},
    {"equal edges: the first found is q", "-1 1 0", "0 4 1", k_right_first, 0, 'q'},
    {"equal, the first would flip", "-.25 1 .75", "0 4 1", k_left_first, 0, 'q'},
    {"the shorter would flip", "-.25 1 .75", "0 5 1", k_left_first, 0, 'o'},
    {"bent by less than the tolerance", "-1 1 0", "0.000244140625 3 1", k_left_first, 0, 'q'},
    {"bent by more", "-1 1 0", "0.0009765625 3 1", k_left_first, 0, 'o'},
    {"shortest of all edges", "-1 1 0", "0 3 1", k_left_first, 4, 'q'},
    {"an eave is nearer", "-.25 2 .75", "0 3 1", k_left_first, 4, 'o'},
    {"edges would get too long", "-1 1 0", "0 3 1", k_left_first, 2.5, 'o'},
};

TEST(line, goes_along_the_shorter_of_two_straight_sharp_edges)
{
    for (const ridge_case& c : ridge_cases) {
        SCOPED_TRACE(c.name);
        reduce_mesh m(roof_points(c.l, c.q), c.triangles);
        m.params.angle_tol = 0.5;
        m.params.max_edge = c.max_edge;
        m.enter();
        const bool goes = c.target != 'o';
        EXPECT_EQ(remove_line(m.site('o')), goes);
        EXPECT_EQ(m.target('o'), c.target);
        EXPECT_EQ(m.type('o'), goes ? vtx_removed : vtx_locked);
        EXPECT_EQ(m.all_of(vtx_locked).size(), goes ? 6u : 1u);
        EXPECT_TRUE(m.holders_are_exact());
    }
}

TEST(line, needs_edges_between_sound_triangles_that_bend_by_the_limit)
{
    for (const char* flaw : {"", "limit", "link", "degenerate"}) {
        reduce_mesh m("o 0 2 0  p 0 0 0  q 0 3 0  l -1 2 0  k 0 2 -1", "olp oql okq opk");
        m.enter(); // the sides stand square to each other: a cosine of 0
        const std::string name = flaw;
        if (name == "limit") m.params.angle_tol = -0.01;
        if (name == "link") m.at("opk").nbr[0] = m.at("olp").nbr[2] = {};
        if (name == "degenerate") m.at("olp").flags |= tr_no_nrm;
        EXPECT_EQ(remove_line(m.site('o')), name.empty()) << name;
    }
}

// Gables towards X, Y and U (-X); the fourth direction, V, is a gable or the middle of a slope.
TEST(line, may_have_a_third_edge_but_no_second_line)
{
    for (const char* v : {"0 -1 -1", "0 -1 0"}) {
        reduce_mesh m(std::string("o 0 0 0  X 1 0 0  Y 0 1 0  U -1 0 0  a 1 1 -1  b -1 1 -1  "
                                  "c -1 -1 -1  d 1 -1 -1  V ") +
                          v,
                      "oXa oaY oYb obU oUc ocV oVd odX");
        m.params.angle_tol = 0.4;
        m.enter();
        const bool crossing = std::string(v) == "0 -1 0";
        EXPECT_EQ(remove_line(m.site('o')), !crossing);
        EXPECT_EQ(m.target('o'), crossing ? 'o' : 'X');
        EXPECT_EQ(m.type('o'), crossing ? vtx_locked : vtx_removed);
    }
}

} // namespace velmora
