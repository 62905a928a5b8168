#include "linked.h"
#include "repair/ray.h"
#include "repair/seed_ray.h"
#include "repair/winding.h"

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <random>

namespace velmora {
namespace {

ray_start start_at(const mesh_ctx& ctx, const float* center, obj_h seed)
{
    leaf_cell place = {};
    find_leaf_cell(ctx.root, center, nullptr, &place);
    return {cell_find_leaf(ctx.root, center), place.path, seed};
}

void inner_point(const tr_rec& tr, float* out)
{
    for (int k = 0; k < 3; ++k)
        out[k] = (corner_pos(tr, 0)[k] + corner_pos(tr, 1)[k] + corner_pos(tr, 2)[k]) / 3.0f;
}

// Sheets above each other, fine enough for many leaves.
struct stack {
    mesh_fixture m;

    explicit stack(int sheets, float shift = 0.0f) : stack(make(sheets, shift))
    {
    }
    explicit stack(const solid& s) : m(s.points, s.trs)
    {
    }

    static solid make(int sheets, float shift)
    {
        solid s;
        for (int i = 0; i < sheets; ++i)
            add_sheet(&s, 8, 4.0f * static_cast<float>(i));
        for (mesh_fixture::point& p : s.points)
            for (float& x : p)
                x += shift;
        return s;
    }

    // A triangle in the middle of a sheet.
    tr_h middle(int sheet) const
    {
        return m.trs[static_cast<std::size_t>(sheet * 128 + 70)];
    }

    ray_answer cast_at(tr_h from, const float* center, float dx, float dy, float dz)
    {
        ray_caster rays = ray_caster_open(m.ctx);
        const float dir[3] = {dx, dy, dz};
        const ray_start start = start_at(m.ctx, center, rec(from).cell);
        const ray_answer answer = cast_seed_ray(start, center, dir, &rays);
        ray_caster_close(&rays);
        return answer;
    }

    ray_answer cast(tr_h from, float dx, float dy, float dz)
    {
        float center[3];
        inner_point(rec(from), center);
        return cast_at(from, center, dx, dy, dz);
    }
};

// Far off, where neighbouring floats lie 0.125 apart, single steps are lost in rounding.
TEST(seed_ray, counts_each_sheet_once_through_many_leaves)
{
    for (const float shift : {0.0f, 1048576.0f}) {
        stack st(7, shift);
        ASSERT_FALSE(is_leaf(rec(st.m.ctx.root)));
        for (int sheet = 0; sheet < 7; ++sheet) {
            const ray_answer up = st.cast(st.middle(sheet), 0, 0, 1);
            const ray_answer down = st.cast(st.middle(sheet), 0, 0, -1);
            EXPECT_TRUE(up.clean && down.clean);
            EXPECT_EQ(up.odd, (6 - sheet) % 2 == 1);
            EXPECT_EQ(down.odd, sheet % 2 == 1);
        }
        const ray_answer slant = st.cast(st.middle(3), 0.36f, 0.48f, 0.8f);
        EXPECT_TRUE(slant.clean);
        EXPECT_TRUE(slant.odd); // out at the side, after one sheet of three
    }
}

TEST(seed_ray, is_not_clean_through_an_edge_or_an_edge_error)
{
    stack st(3);
    tr_rec& next = rec(st.middle(1));
    next.flags |= tr_edge_err;
    EXPECT_FALSE(st.cast(st.middle(0), 0, 0, 1).clean);
    next.flags = tr_no_nrm; // degenerate: as if it were not there
    const ray_answer gap = st.cast(st.middle(0), 0, 0, 1);
    EXPECT_TRUE(gap.clean);
    EXPECT_TRUE(gap.odd);
    next.flags = 0;
    const float on_edge[3] = {4.5f, 4.5f, 0.0f};
    EXPECT_FALSE(st.cast_at(st.middle(0), on_edge, 0, 0, 1).clean);
}

TEST(seed_ray, ends_in_a_model_without_bounds)
{
    const float inf = std::numeric_limits<float>::infinity();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    stack endless(2);
    rec(rec(endless.m.trs[0]).vtx[0]).pos[2] = -inf;
    rec(rec(endless.m.trs[200]).vtx[0]).pos[2] = inf;
    endless.m.fill_tree();
    EXPECT_FALSE(endless.cast(endless.middle(0), 0, 0, 1).clean);
    EXPECT_FALSE(endless.cast(endless.middle(0), nan, nan, nan).clean);
    endless.cast(endless.middle(0), 1, 0, 0);
    endless.cast(endless.middle(0), 0.6f, 0, 0.8f);
    endless.cast(endless.m.trs[0], 0, 0, 1);
}

TEST(seed_ray, is_crossed_only_once_by_what_it_finds_degenerate)
{
    for (const std::uint64_t patience : {std::uint64_t{0}, std::uint64_t{1000}}) {
        mesh_fixture m("a -2 -1 0  b 2 -1 0  c 0 2 0  d -2 0 1  e 0 0.08 1  f 2 0 1", "abc def");
        m.set_merge_tol(0.1f);
        ray_caster rays = ray_caster_open(m.ctx);
        rays.patience = patience;
        const float at[3] = {0.0f, 0.03f, 0.0f};
        const float up[3] = {0.0f, 0.0f, 1.0f};
        const ray_start start = start_at(m.ctx, at, m.obj("abc"));
        EXPECT_TRUE(cast_seed_ray(start, at, up, &rays).odd);
        EXPECT_TRUE(m.at("def").flags & tr_no_nrm);
        EXPECT_FALSE(cast_seed_ray(start, at, up, &rays).odd);
        ray_caster_close(&rays);
    }
}

// Triangles of every kind that the index treats in its own way, far from the origin in some runs.
struct ray_soup {
    std::mt19937 random;
    std::vector<mesh_fixture::point> points;
    std::vector<mesh_fixture::corners> trs;

    explicit ray_soup(unsigned seed) : random(seed)
    {
        const float far_off = seed % 4 == 3 ? 3000.0f : 0.0f;
        for (int i = 0; i < 160; ++i)
            add(static_cast<int>((seed + random()) % 6), far_off);
    }

    float real(float most)
    {
        return most * static_cast<float>(static_cast<int>(random() % 2001) - 1000) / 1000.0f;
    }

    mesh_fixture::point near_to(const mesh_fixture::point& p, float most)
    {
        return {p[0] + real(most), p[1] + real(most), p[2] + real(most)};
    }

    void add(int kind, float far_off)
    {
        const int first = static_cast<int>(points.size());
        mesh_fixture::point c[3];
        for (mesh_fixture::point& p : c)
            for (float& x : p)
                x = 0.5f * static_cast<float>(static_cast<int>(random() % 9) - 4); // a lattice
        if (kind == 1) c[0] = near_to({0, 0, 0}, 2.0f);
        if (kind == 1 || kind == 2) c[1] = near_to(c[0], kind == 1 ? 1.0f : 0.003f);
        if (kind == 2) c[2] = near_to(c[0], 0.003f);
        if (kind == 3) c[2] = near_to(c[1], random() % 2 ? 1e-3f : 1e-5f); // a needle
        if (kind == 4)
            for (int k = 0; k < 3; ++k)
                c[2][k] = c[0][k] + 0.25f * (c[1][k] - c[0][k]); // hardly a triangle, or none
        if (kind == 4 && random() % 2) c[2] = near_to(c[2], random() % 2 ? 1e-2f : 4e-6f);
        for (mesh_fixture::point& p : c)
            points.push_back({p[0] + far_off, p[1] + far_off, p[2]});
        const int turn = static_cast<int>(random() % 3);
        trs.push_back({first + turn, first + (turn + 1) % 3, first + (turn + 2) % 3});
        for (int copy = 0; kind == 5 && copy < 4; ++copy)
            trs.push_back({first + copy % 2, first + 1 - copy % 2, first + 2});
    }
};

struct cast_record {
    std::vector<int> answers;
    std::vector<tr_rec> after;
};

// Anywhere, or to the inside of some other triangle.
void aim(const mesh_fixture& m, const float* from, ray_soup* s, float* dir)
{
    vec_set(dir, s->real(1.0f), s->real(1.0f), s->real(1.0f));
    const bool at_other = s->random() % 2;
    if (at_other) {
        float target[3];
        inner_point(rec(m.trs[s->random() % m.trs.size()]), target);
        vec_diff(from, target, dir);
    }
    vec_unit(dir);
    const float least = at_other ? 0.0f : s->random() % 2 ? 0.1f : 0.6f;
    for (int k = 0; k < 3; ++k)
        if (std::fabs(dir[k]) < least) dir[k] = 0.0f;
}

// Some have normals from elsewhere that stand, or are known to have none.
void mark_some(const mesh_fixture& m, ray_soup* s)
{
    for (const tr_h t : m.trs) {
        tr_rec& tr = rec(t);
        const auto kind = s->random() % 24;
        if (kind < 3) tr.flags |= tr_nrm_done;
        if (kind < 3) vec_set(tr.nrm, kind == 0 ? 1.0f : 0.0f, kind == 1 ? 1.0f : 0.0f, 0.0f);
        if (kind == 3) tr.flags |= tr_no_nrm;
        if (kind == 4) tr.flags |= tr_edge_err;
    }
}

void give_random_turn(tr_h t, ray_soup* s)
{
    const int corner = static_cast<int>(s->random() % 3);
    swap_corners(t, corner, next3(corner));
    tr_recompute_nrm(&rec(t), true, nullptr);
}

// Casts from all triangles. Most seeds are then turned, as orientation does it, which may change
// the axis along which they are looked at.
cast_record cast_all(unsigned seed, bool by_index)
{
    ray_soup source(seed);
    mesh_fixture m(source.points, source.trs, soup);
    if (seed % 5 == 4) merge_tol = 0.1f; // many are too flat for a normal
    m.fill_tree(seed % 3 ? 12 : 60);
    mark_some(m, &source);
    ray_caster rays = ray_caster_open(m.ctx);
    rays.patience = by_index ? 0 : std::numeric_limits<std::uint64_t>::max();
    cast_record record;
    float at[3] = {};
    float dir[3] = {};
    for (const tr_h t : m.trs) {
        float before[3];
        vec_copy(at, before);
        inner_point(rec(t), at);
        if (!pts_same(at, before) || source.random() % 4 == 0) aim(m, at, &source, dir);
        const ray_start start = start_at(m.ctx, at, rec(t).cell);
        if (!start.leaf) continue;
        const ray_answer answer = cast_seed_ray(start, at, dir, &rays);
        record.answers.push_back(!answer.clean ? 2 : answer.odd ? 1 : 0);
        if (source.random() % 3 == 0) continue; // given up
        // Now and then a piece that no ray has started from.
        const bool other = source.random() % 8 == 0;
        const tr_h turned = other ? m.trs[source.random() % m.trs.size()] : t;
        give_random_turn(turned, &source);
        ray_caster_settled(rec(turned).cell, true, &rays);
    }
    EXPECT_EQ(rays.state, by_index ? index_stands : index_not_yet);
    ray_caster_close(&rays);
    for (const tr_h t : m.trs) {
        record.after.push_back(rec(t));
        record.after.back().walk_mark = 0;
    }
    return record;
}

TEST(seed_ray, tells_the_same_by_the_index_as_through_all_leaves)
{
    int clean[3] = {};
    for (unsigned seed = 0; seed < 60; ++seed) {
        SCOPED_TRACE(seed);
        const cast_record slow = cast_all(seed, false);
        const cast_record fast = cast_all(seed, true);
        ASSERT_EQ(slow.answers, fast.answers);
        ASSERT_EQ(
            std::memcmp(slow.after.data(), fast.after.data(), sizeof(tr_rec) * slow.after.size()),
            0);
        for (const int a : slow.answers)
            ++clean[a];
    }
    for (const int count : clean)
        EXPECT_GT(count, 1000); // even, odd and not clean
}

// Triangles that are met where their planes alone would not let one expect it.
struct met_case {
    const char* name;
    std::vector<mesh_fixture::point> corners;
    bool turned; // after the index was built
    float from[3];
    float to[3];
};

const met_case met_cases[] = {
    // The height is lost in the grid of the first coordinate, and the normal lies along that axis
    // instead of across.
    {"so flat that its normal is lost",
     {{1000.0f, 1.0f, 1.0f},
      {1000.00006f, 0.998469949f, 1.0005852f},
      {1000.00006f, 0.999203026f, 1.00030482f}},
     false,
     {1000.21442f, 1.13204157f, 1.03171754f},
     {999.698792f, 0.866116583f, 0.968986869f}},
    // It is met above the plane of its tip as far as rounding in the distance to another corner
    // reaches, and which of them comes first changes with the turns of the repairs.
    {"so long and thin that it matters which corner is first",
     {{0x1.6a0b38p-1f, -0x1.6a3206p-1f, 0x1.6a3146p-1f},
      {-0x1.76de7ap-1f, 0x1.67f138p-1f, -0x1.67e754p-1f},
      {-0x1.6c9a5p-1f, 0x1.6cf1f6p-1f, -0x1.6d5358p-1f}},
     true,
     {0x1.69be56p-1f, -0x1.69e8p-1f, 0x1.69e436p-1f},
     {0x1.69be56p-1f, -0x1.713e84p-1f, 0x1.62c078p-1f}},
};

TEST(ray_index, has_a_triangle_wherever_it_may_be_met)
{
    for (const met_case& c : met_cases) {
        SCOPED_TRACE(c.name);
        const mesh_fixture m(c.corners, {{{0, 1, 2}}});
        ray_index index = {};
        ASSERT_TRUE(ray_index_build(&index));
        if (c.turned) swap_corners(m.trs[0], 0, 1);
        tr_rec& tr = rec(m.trs[0]);
        tr_recompute_nrm(&tr, true, nullptr);
        EXPECT_EQ(segment_triangle_class(tr, segment_between(c.from, c.to)), crossing_on_boundary);
        index_line line;
        ASSERT_TRUE(index_line_between(c.from, c.to, 0.0, index, &line));
        bool found = false;
        for_each_near_line(index, line, [&](const index_entry&) { return found = true; });
        EXPECT_TRUE(found);
        ray_index_free(&index);
    }
}

} // namespace
} // namespace velmora
