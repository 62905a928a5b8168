#include "mesh/box.h"
#include "mesh/cell_tree.h"
#include "mesh/vec.h"
#include "random_trs.h"
#include "topo/merge.h"
#include "topo_mesh.h"

#include <cmath>
#include <random>
#include <string>
#include <utility>

namespace velmora {

namespace {

void merge(topo_mesh* m)
{
    ASSERT_EQ(merge_vertices(&m->err, &m->ctx), stage_ok);
    EXPECT_TRUE(m->holders_are_exact());
}

// All pairs of each leaf, as one would write it without any thought of speed.
void plain_merge(mesh_fixture* m)
{
    walk_leaves(m->ctx.root, everywhere, [](cell_node& leaf) {
        for (std::uint32_t x = 0; x < leaf.list.count; ++x)
            for (std::uint32_t y = x + 1; y < leaf.list.count; ++y) {
                const cell_obj& a = rec(list_at(leaf.list, x));
                const cell_obj& b = rec(list_at(leaf.list, y));
                if (!box_overlap(a.box, b.box)) continue;
                for (int i = 0; i < 3; ++i)
                    for (int j = 0; j < 3; ++j) {
                        const vtx_h p = rec(a.tr).vtx[i];
                        const vtx_h q = rec(b.tr).vtx[j];
                        if (p == q || !pts_equal(rec(p).pos, rec(q).pos)) continue;
                        const bool q_stays = rec(p).refs <= rec(q).refs;
                        if (q_stays) rec(a.tr).vtx[i] = vtx_ref(q);
                        if (!q_stays) rec(b.tr).vtx[j] = vtx_ref(p);
                        vtx_release(q_stays ? p : q);
                    }
            }
        return true;
    });
}

// The record of each corner and its count; no vertex is made by a merge, so this tells all.
using corner_state = std::pair<std::uint32_t, std::uint16_t>;

std::vector<corner_state> corners_of(const mesh_fixture& m)
{
    std::vector<corner_state> all;
    for (const tr_h t : m.trs)
        for (const vtx_h v : rec(t).vtx)
            all.emplace_back(v.i, rec(v).refs);
    return all;
}

// Uneven counts, close to the wrap and beyond it, as models with shared vertices may have them.
void spoil_counts(mesh_fixture* m, unsigned seed)
{
    std::mt19937 random(seed);
    for (const tr_h t : m->trs)
        for (const vtx_h v : rec(t).vtx)
            rec(v).refs = static_cast<std::uint16_t>(random() % 12 - 6);
}

// Points stand on a grid of one quarter, so a tolerance below makes all close points equal ones, a
// tolerance above makes chains; the later seeds move single points by half of the tolerance.
struct random_soup {
    std::vector<mesh_fixture::point> points;
    std::vector<mesh_fixture::corners> trs;
    mesh_form form;
    float tol;
    std::uint32_t list_len = 0; // of the tree, if not by its size

    explicit random_soup(unsigned seed)
        : points(random_points(seed, 4 + seed % 30)),
          trs(random_trs(seed, 4 + seed % 30, 5 + seed % 60)),
          form(seed % 5 ? soup : shared_corners), tol(seed % 3 ? 0.125f : 0.25f)
    {
        if (seed >= 120)
            for (std::size_t i = 0; i < points.size(); i += 3)
                points[i][seed % 3] += 0.5f * tol;
        if (seed % 17 == 0) points[1][0] = std::nanf("");
        if (seed % 19 == 0) points[0][1] = INFINITY;
        if (seed >= 300) widen(seed);
        if (seed % 4 == 0) scale(seed);
    }

    // Hundreds of places in few leaves, spread at random, so that chains of close ones run through
    // all of them: from a handful within the tolerance to all.
    static random_soup dense(unsigned seed)
    {
        random_soup s(1);
        std::mt19937 random(seed);
        s.points.resize(320 + 20 * (seed % 9));
        for (mesh_fixture::point& p : s.points)
            for (float& x : p)
                x = std::ldexp(static_cast<float>(random() % 4096), static_cast<int>(seed % 7) - 9);
        const auto count = static_cast<unsigned>(s.points.size());
        s.trs = random_trs(seed, count, seed % 2 ? count / 3 : count);
        s.form = seed % 5 ? soup : shared_corners;
        s.tol = std::ldexp(seed % 3 ? 300.0f : 75.0f * static_cast<float>(seed % 19),
                           static_cast<int>(seed % 7) - 9);
        s.list_len = seed == 3 ? 300 : 4000;
        return s;
    }

    // A tolerance of a good part of the model or beyond it: the triangles stand in most of many
    // leaves.
    void widen(unsigned seed)
    {
        tol *= static_cast<float>(2 + seed % 23);
        list_len = 2 + seed % 7;
    }

    void scale(unsigned seed)
    {
        const float by = std::ldexp(1.0f, static_cast<int>(seed % 80) - 40);
        for (auto& p : points)
            for (float& x : p)
                x *= by;
        tol = seed % 8 ? tol * by : 0.0f;
    }
};

} // namespace

static void expect_outcome_of_all_pairs(const random_soup& s, unsigned seed)
{
    std::vector<corner_state> outcome[2];
    for (int fast = 0; fast < 2; ++fast) {
        topo_mesh m(s.points, s.trs, s.form);
        m.set_merge_tol(s.tol);
        m.fill_tree(s.list_len);
        if (seed % 2) spoil_counts(&m, seed);
        if (fast) merge(&m);
        if (!fast) plain_merge(&m);
        outcome[fast] = corners_of(m);
    }
    ASSERT_EQ(outcome[0], outcome[1]);
}

TEST(merge, outcome_is_that_of_all_pairs_in_order)
{
    for (unsigned seed = 1; seed < 420; ++seed) {
        SCOPED_TRACE(seed);
        expect_outcome_of_all_pairs(random_soup(seed), seed);
    }
    for (unsigned seed = 0; seed < 16; ++seed) {
        SCOPED_TRACE("dense " + std::to_string(seed));
        expect_outcome_of_all_pairs(random_soup::dense(seed), seed);
    }
}

// More users of a point than a count can tell: it wraps, and the next tie starts anew.
TEST(merge, crowd_of_equal_triangles_takes_no_quadratic_time)
{
    std::vector<mesh_fixture::corners> trs(200000, {0, 1, 2});
    trs.push_back({3, 4, 5}); // far away, so that the tree stays small
    topo_mesh m({{0, 0, 0}, {1e-3f, 0, 0}, {0, 1e-3f, 0}, {9, 9, 9}, {9, 8, 9}, {8, 9, 9}}, trs,
                soup);
    merge(&m);
    EXPECT_LT(m.vtx_count(), 16u);
}

// All corners are equal, and nearly all leaves list all triangles.
TEST(merge, tolerance_beyond_the_model_takes_no_quadratic_time)
{
    std::mt19937 random(1);
    std::vector<mesh_fixture::point> points(3000);
    std::vector<mesh_fixture::corners> trs;
    for (mesh_fixture::point& p : points)
        for (float& x : p)
            x = static_cast<float>(random() % 1024);
    for (int i = 0; i + 2 < 3000; ++i)
        trs.push_back({i, i + 1, i + 2});
    topo_mesh m(points, trs, soup);
    m.set_merge_tol(5000.0f);
    merge(&m);
    EXPECT_EQ(m.vtx_count(), 1u);
}

} // namespace velmora
