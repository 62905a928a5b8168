#include "mesh/measure.h"
#include "mesh/vec.h"
#include "mesh_fixture.h"

#include <cmath>
#include <gtest/gtest.h>

namespace velmora {

static const char* const k_quad = "a 0 0 0  b 1 0 0  c 1 1 0  d 0 1 0";

TEST(triangle, edges_and_twins_are_found_by_record)
{
    mesh_fixture m(k_quad, "abc bca cba abd");
    const tr_rec& tr = m.at("abc");
    const vtx_h a = m.vtx('a');
    const vtx_h b = m.vtx('b');
    EXPECT_EQ(tr_edge_index(m.vtx('c'), b, tr), 1);
    EXPECT_EQ(tr_edge_index(a, m.vtx('c'), tr), 2);
    EXPECT_EQ(tr_edge_index(a, m.vtx('d'), tr), -1);
    tr_rec flat = tr; // a b a
    flat.vtx[2] = a;
    EXPECT_EQ(tr_edge_index(b, a, flat), 0); // the first of two
    EXPECT_TRUE(tr_collapsed(flat) && !tr_collapsed(tr));
    EXPECT_TRUE(tr_same_vertices(tr, m.at("bca")));
    EXPECT_TRUE(tr_same_vertices(m.at("cba"), tr));
    EXPECT_FALSE(tr_same_vertices(tr, m.at("abd")));
    EXPECT_EQ(tr_nbr_index({}, tr), -1); // though its slots hold none
}

TEST(max_cos, belongs_to_the_first_of_equal_corners)
{
    mesh_fixture m("a 0 0 0  b 2 0 0  c 0 2 0  d 8 0 0", "abc adc");
    const max_cos_result even = tr_max_cos(m.at("abc"), 0.5);
    EXPECT_TRUE(even.above);
    EXPECT_EQ(even.corner, 1);
    EXPECT_FALSE(tr_max_cos(m.at("abc"), even.cos).above); // not above itself
    EXPECT_EQ(tr_max_cos(m.at("adc"), 2.0).corner, 1);
}

struct clean_case {
    const char* name;
    mesh_fixture::point b; // a lies at the origin
    mesh_fixture::point c;
    bool ok;
    float nrm[3];
};

static const clean_case clean_cases[] = {
    {"plain", {2, 0, 0}, {0, 3, 0}, true, {0, 0, 1}},
    {"nearly along an axis", {2, 0, 0}, {0, 1, 0x1p-20f}, true, {0, 0, 1}},
    {"not as nearly", {2, 0, 0}, {0, 1, 0x1p-19f}, true, {0, -0x1p-19f, 1}},
    {"short edge", {0x1p-24f, 0, 0}, {0, 3, 0}, false, {}},
    {"shortest edge that counts", {0x1p-23f, 0, 0}, {0, 3, 0}, true, {0, 0, 1}},
    {"on one line", {1, 1, 0}, {2, 2, 0}, false, {}},
};

TEST(clean_normal, has_no_tiny_components)
{
    for (const clean_case& c : clean_cases) {
        SCOPED_TRACE(c.name);
        mesh_fixture m({{0, 0, 0}, c.b, c.c}, {{0, 1, 2}});
        float nrm[3];
        EXPECT_EQ(tr_clean_normal(rec(m.trs[0]), nrm), c.ok);
        EXPECT_TRUE(!c.ok || pts_same(nrm, c.nrm)) << nrm[0] << " " << nrm[1] << " " << nrm[2];
    }
}

struct height_case {
    const char* name;
    mesh_fixture::point corners[3];
    int corner;
    float vec[3];
};

static const height_case height_cases[] = {
    {"widest last", {{0, 0, 0}, {4, 0, 0}, {1, 2, 0}}, 2, {0, -2, 0}},
    {"widest first", {{0, 0, 0}, {2, 0, 0}, {0, 2, 0}}, 0, {1, 1, 0}},
    // Three equal angles to the last bit.
    {"a later corner wins a tie",
     {{-0.875f, -0.125f, 0}, {-0.5f, 0.25f, 0}, {-1.0f, 0.375f, 0.125f}},
     2,
     {0.3125f, -0.3125f, -0.125f}},
};

TEST(height, runs_from_the_widest_corner_to_the_edge_opposite)
{
    for (const height_case& c : height_cases) {
        SCOPED_TRACE(c.name);
        mesh_fixture m({c.corners[0], c.corners[1], c.corners[2]}, {{0, 1, 2}});
        const height_result h = tr_height(rec(m.trs[0]));
        EXPECT_TRUE(h.ok);
        EXPECT_EQ(h.corner, c.corner);
        EXPECT_TRUE(pts_same(h.vec, c.vec)) << h.vec[0] << " " << h.vec[1] << " " << h.vec[2];
        EXPECT_EQ(h.height, vec_len(c.vec));
    }
}

TEST(height, must_exceed_the_tolerance)
{
    mesh_fixture m("a 0 0 0  b 4 0 0  c 1 0.5 0", "abc");
    m.set_merge_tol(0.5f);
    EXPECT_FALSE(tr_height(m.at("abc")).ok);
    EXPECT_EQ(tr_height(m.at("abc")).corner, 2);
    m.set_merge_tol(std::nextafter(0.5f, 0.0f));
    EXPECT_TRUE(tr_height(m.at("abc")).ok);
    m.set_merge_tol(1.0f); // now a and c are equal
    EXPECT_EQ(tr_height(m.at("abc")).corner, -1);
}

struct nrm_case {
    const char* name;
    mesh_fixture::point b; // a lies at the origin
    mesh_fixture::point c;
    bool has;
    float nrm[3];
};

static const nrm_case nrm_cases[] = {
    {"first corner serves", {2, 0, 0}, {0, 3, 0}, true, {0, 0, 1}},
    {"no corner serves, the height does", {4, 0, 0}, {2, 0, 0x1p-4f}, true, {0, -1, 0}},
    {"too flat for a height", {4, 0, 0}, {2, 0, 0x1p-21f}, false, {0, 0, 0}},
};

TEST(recomputed_normal, comes_from_a_corner_or_the_height_or_not_at_all)
{
    for (const nrm_case& c : nrm_cases) {
        SCOPED_TRACE(c.name);
        mesh_fixture m({{0, 0, 0}, c.b, c.c}, {{0, 1, 2}});
        tr_rec& tr = rec(m.trs[0]);
        if (c.has) tr.flags |= tr_no_nrm; // the opposite
        vec_set(tr.nrm, 5, 5, 5);
        std::uint32_t counter = 3;
        EXPECT_EQ(tr_recompute_nrm(&tr, true, &counter), c.has);
        EXPECT_TRUE(pts_same(tr.nrm, c.nrm)) << tr.nrm[0] << " " << tr.nrm[1] << " " << tr.nrm[2];
        EXPECT_EQ((tr.flags & tr_no_nrm) == 0, c.has);
        EXPECT_TRUE(tr.flags & tr_nrm_done);
        EXPECT_EQ(counter, c.has ? 4u : 3u);
    }
    mesh_fixture m(k_quad, "abc");
    EXPECT_TRUE(tr_recompute_nrm(&m.at("abc"), false, nullptr));
    EXPECT_EQ(m.at("abc").nrm[2], 0.0f); // only marked
    EXPECT_EQ(m.at("abc").flags, tr_loaded | tr_nrm_done);
}

struct seg_case {
    const char* name;
    float a[3];
    float b[3];
    float p[3];
    double dist;
};

static const seg_case seg_cases[] = {
    {"foot inside", {0, 0, 0}, {4, 0, 0}, {1, 3, 4}, 5.0},
    {"behind the start", {0, 0, 0}, {4, 0, 0}, {-3, 4, 0}, 5.0},
    {"beside the start", {0, 0, 0}, {4, 0, 0}, {0, 2, 0}, 2.0},
    {"beyond the end", {0, 0, 0}, {4, 0, 0}, {7, 4, 0}, 5.0},
    {"at the start", {1, 2, 3}, {4, 0, 0}, {1, 2, 3}, 0.0},
    {"segment without length", {1, 1, 1}, {1, 1, 1}, {1, 4, 5}, 5.0},
    {"of next to no length", {1, 0, 0}, {1 + 0x1p-23f, 0, 0}, {2, 0, 0}, 1 - 0x1p-23},
    // The double root of a float sum; a vectorised build once kept the sum in double.
    {"narrowed on the way",
     {-2, -1, 2},
     {-1, 2, -2},
     {-1.74725556f, 1.30157423f, 1.46682882f},
     1.525089639624429},
};

TEST(distance, to_a_segment_is_that_to_its_nearest_point)
{
    for (const seg_case& c : seg_cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(pt_seg_dist(c.a, c.b, c.p), c.dist);
    }
}

} // namespace velmora
