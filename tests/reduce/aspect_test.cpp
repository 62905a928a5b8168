#include "mesh/vec.h"
#include "reduce/aspect.h"
#include "reduce_fixture.h"

#include <cmath>
#include <gtest/gtest.h>

namespace velmora {

static double cos_deg(double degrees)
{
    return std::cos(degrees / 180.0 * k_pi);
}

// A flat sheet whose M has come close to N: MNS and HNM are too sharp, at S and at H.
struct sliver_sheet : reduce_mesh {
    explicit sliver_sheet(const std::string& list = sheet_trs(5))
        : reduce_mesh(sheet_points(5), list)
    {
        move('M', 0.90625f, 0, 0);
        params = {0.25, 0.9, cos_deg(10.0), 0.0, 0.0, 0.0, 0.0, mode_aspect};
    }
    void label_fan(const std::string& list)
    {
        for (const char* name : {"GHM", "GML", "LMR", "MSR", "MNS", "HNM"})
            if (list.find(name) != std::string::npos) at(name).plane_class = 300;
    }
};

static const char* const k_whole_fan = "GHM GML LMR MSR MNS HNM";

TEST(aspect, goes_over_the_shortest_edge_of_the_bad_triangles)
{
    sliver_sheet m;
    m.classify();
    m.reduce();
    EXPECT_EQ(m.all_of(vtx_removed),
              "M"); // H and S, which come before it, are the sharp corners themselves
    EXPECT_EQ(m.target('M'), 'N');
    for (const char c : std::string("GHLRSNITO")) // around M and around N
        EXPECT_EQ(m.type(c), vtx_locked);
    EXPECT_TRUE(m.holders_are_exact());
}

struct rim_case {
    const char* name;
    const char* labelled; ///< triangles of a face square to z
    double degrees;       ///< limit of the angles
    char target;
};

static const rim_case rim_cases[] = {
    {"no face", "", 10, 'N'},
    {"inside of a face: any neighbour, in fan order", k_whole_fan, 10, 'G'},
    {"inside of a face, nothing bad", k_whole_fan, 2, 'M'},
    {"on a rim: the face has a bad triangle", "MNS", 10, 'N'},
    {"on a rim: the face has none", "LMR MSR", 10, 'M'},
};

TEST(aspect, looks_only_at_the_face_on_whose_rim_the_vertex_lies)
{
    for (const rim_case& c : rim_cases) {
        sliver_sheet m;
        m.params.min_angle_cos = cos_deg(c.degrees);
        m.classify();
        m.label_fan(c.labelled);
        m.only("M");
        if (c.target == 'G') m.info('M').moved[2] = 9.0f; // within a face nothing piles up
        m.reduce();
        EXPECT_EQ(m.target('M'), c.target) << c.name;
        EXPECT_EQ(m.info('G').moved[2], 0.0f) << c.name;
    }
}

struct pile_case {
    const char* name;
    float piled_up; ///< on V so far, along its normal
    float other_nrm[3];
    double dist_tol;
    float expected; ///< on T afterwards, 0 when V stays
};

// The step to T is 4 long and 3 high: V's normal, upright, makes 3 of it. T's makes as much as it
// is looked along, but that counts along V's normal as well.
static const pile_case pile_cases[] = {
    {"V's plane", 0.0f, {0, 1, 0}, 3.0, 3.125f},
    {"T's plane", 0.0f, {1, 0, 0}, 4.0, 4.125f},
    {"too much", 0.0f, {1, 0, 0}, 3.9, 0.0f},
    {"on top of what was there", 0.5f, {1, 0, 0}, 9.0, 4.625f},
    {"against what was there, V's plane of equals", -3.5f, {1, 0, 0}, 9.0, -0.375f},
};

TEST(displacement, takes_the_larger_height_along_the_normal_that_goes)
{
    for (const pile_case& c : pile_cases) {
        SCOPED_TRACE(c.name);
        reduce_mesh m("o 0 0 0  t 4 0 3  b 0 40 0", "otb");
        m.params = {c.dist_tol, 0.9, cos_deg(20.0), 0.0, 0.0, 0.0, 0.0, mode_aspect};
        m.classify();
        vec_set(m.info('o').nrm, 0.0f, 0.0f, 1.0f);
        vec_set(m.info('o').moved, 0.0f, 0.0f, c.piled_up);
        vec_copy(c.other_nrm, m.info('t').nrm);
        m.info('t').moved[2] = 0.125f;
        const bool goes = c.expected != 0.0f;
        EXPECT_EQ(remove_aspect(m.site('o')), goes);
        EXPECT_EQ(m.info('t').moved[2], goes ? c.expected : 0.125f);
    }
}

struct candidate_case {
    const char* name;
    const char* points; ///< a and d of a hexagon, the middle o not among them
    const char* triangles;
    double degrees; ///< limit of the angles
    double dist_tol;
    char target;
};

static const candidate_case candidate_cases[] = {
    {"least deviation first", "a .1 0 .05  d -.1 0 0", k_hexagon_trs, 7, 0.1, 'd'},
    {"only the lesser within the tolerance", "a .1 0 .05  d -.1 0 0", k_hexagon_trs, 7, 0.045, 'd'},
    {"none within the tolerance", "a .1 0 .05  d -.1 0 0", k_hexagon_trs, 7, 0.04, 'o'},
    {"four bad angles instead of two", "a .7 0 0  d -1 0 0", k_hexagon_trs, 45, 9, 'o'},
    {"one bad angle for another, sharper", "a .7 0 0  d -1 0 0", "oab obc", 45, 9, 'o'},
    {"one bad angle for another, blunter", "a .5 0 0  d -1 0 0", "oab obc", 45, 9, 'a'},
};

TEST(candidates, are_tried_by_deviation_and_must_mend)
{
    for (const candidate_case& c : candidate_cases) {
        reduce_mesh m(std::string("o 0 0 0  b .5 .866 0  c -.5 .866 0  e -.5 -.866 0  "
                                  "f .5 -.866 0  ") +
                          c.points,
                      c.triangles);
        m.params = {c.dist_tol, 0.9, cos_deg(c.degrees), 0.0, 0.0, 0.0, 0.0, mode_aspect};
        m.classify();
        m.only("o");
        m.reduce();
        EXPECT_EQ(m.target('o'), c.target) << c.name;
    }
}

// All angles but one are above 8 degrees; without o, one of 5.7 is left.
TEST(candidates, are_always_good_enough_for_a_vertex_of_three_triangles)
{
    reduce_mesh m("o 1 .05 1.2  a 0 0 0  b 10 0 0  c 5 .5 0", "oab obc oca");
    m.params = {5.0, 0.9, cos_deg(8.0), 0.0, 0.0, 0.0, 0.0, mode_aspect};
    m.classify();
    m.only("o");
    m.reduce();
    EXPECT_EQ(m.target('o'), 'a');
}

// Onto N the triangle MSR would flip; onto H, which GHM asks for, none would.
TEST(candidates, end_at_one_that_flips_unless_all_lies_in_a_face)
{
    for (const bool on_face : {false, true}) {
        sliver_sheet m("MNS " + sheet_trs(5).erase(sheet_trs(5).find("MNS "), 4));
        m.move('S', -0.0625f, 0, 0);
        m.move('R', 0.9375f, 1, 0);
        m.move('H', 0, 0.5625f, 0);
        m.classify();
        m.only("M");
        if (on_face) m.label_fan(k_whole_fan);
        m.reduce();
        EXPECT_EQ(m.target('M') == 'M', !on_face);
        EXPECT_NE(m.target('M'), 'N');
    }
}

} // namespace velmora
