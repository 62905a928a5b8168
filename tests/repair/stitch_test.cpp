#include "mesh/cell_tree.h"
#include "mesh/measure.h"
#include "mesh_fixture.h"
#include "random_trs.h"
#include "repair/stitch.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <gtest/gtest.h>

namespace velmora {

namespace {

obj_list all_objs(mesh_fixture* m)
{
    obj_list objs = {};
    std::uint32_t count = 0;
    ++m->ctx.visit_stamp;
    EXPECT_TRUE(tree_collect(m->ctx.root, &objs, &count, &m->ctx));
    return objs;
}

// The same walks, record by record, as one would write them without any thought of speed.
class plain_stitch {
    struct edge_end {
        tr_h tr;
        int corner;
        int edge;
        std::size_t twin;
        bool live;
    };
    std::vector<edge_end> ends;
    std::vector<std::size_t> sorted;

    std::array<float, 3> key(std::size_t r) const
    {
        const float* p = corner_pos(rec(ends[r].tr), ends[r].corner);
        return {p[0], p[1], p[2]};
    }
    bool same(std::size_t a, std::size_t b) const
    {
        return key(a) == key(b);
    }
    std::size_t next_live(std::size_t at) const
    {
        for (++at; at < sorted.size() && !ends[sorted[at]].live;)
            ++at;
        return at;
    }
    void drop_at(std::size_t p)
    {
        const std::size_t r = sorted[p];
        std::size_t equal = 0;
        std::size_t last = p;
        for (std::size_t at = next_live(p); at < sorted.size(); at = next_live(at)) {
            last = at;
            if (!same(r, sorted[at])) break;
            if (same(ends[r].twin, ends[sorted[at]].twin)) ++equal;
        }
        if (equal <= 1) return;
        bool ran_off = false;
        for (std::size_t at = p; at != last;) {
            at = next_live(at);
            ran_off = at >= sorted.size();
            if (ran_off || !same(r, sorted[at])) break;
            if (!same(ends[r].twin, ends[sorted[at]].twin)) continue;
            ends[ends[sorted[at]].twin].live = false;
            ends[sorted[at]].live = false;
        }
        ends[ends[r].twin].live = false;
        if (!ran_off) ends[r].live = false;
    }
    void link(std::size_t a, std::size_t b)
    {
        edge_end& ea = ends[a];
        edge_end& eb = ends[b];
        tr_rec& ta = rec(ea.tr);
        tr_rec& tb = rec(eb.tr);
        if (tr_same_vertices(ta, tb)) return;
        if (ta.nbr[ea.edge] && ta.nbr[ea.edge] != eb.tr) return;
        if (tb.nbr[eb.edge] && tb.nbr[eb.edge] != ea.tr) return;
        ta.nbr[ea.edge] = eb.tr;
        tb.nbr[eb.edge] = ea.tr;
        const vtx_h a0 = ta.vtx[ea.corner];
        const vtx_h a1 = ta.vtx[ends[ea.twin].corner];
        const bool is_start = tb.vtx[eb.edge] == tb.vtx[eb.corner];
        vtx_overwrite(&tb.vtx[eb.edge], is_start ? a0 : a1);
        vtx_overwrite(&tb.vtx[(eb.edge + 1) % 3], is_start ? a1 : a0);
        ea.live = eb.live = ends[ea.twin].live = ends[eb.twin].live = false;
    }
    void match_at(std::size_t p)
    {
        const std::size_t r = sorted[p];
        for (std::size_t at = next_live(p); at < sorted.size(); at = next_live(at)) {
            const std::size_t q = sorted[at];
            if (!same(r, q)) return;
            if (key(ends[q].twin) < key(ends[r].twin)) continue;
            if (same(ends[r].twin, ends[q].twin)) link(r, q);
            return;
        }
    }

  public:
    explicit plain_stitch(const obj_list& objs)
    {
        for (const obj_h o : objs)
            for (int e = 0; e < 3; ++e) {
                const std::size_t r = ends.size();
                ends.push_back({rec(o).tr, e, e, r + 1, true});
                ends.push_back({rec(o).tr, (e + 1) % 3, e, r, true});
            }
        for (std::size_t r = 0; r < ends.size(); ++r)
            sorted.push_back(r);
        std::stable_sort(sorted.begin(), sorted.end(), [&](std::size_t a, std::size_t b) {
            return same(a, b) ? key(ends[a].twin) < key(ends[b].twin) : key(a) < key(b);
        });
    }
    void drop_crowded()
    {
        for (std::size_t p = 0; p < sorted.size(); ++p)
            if (ends[sorted[p]].live) drop_at(p);
    }
    void match()
    {
        for (std::size_t p = 0; p < sorted.size(); ++p)
            if (ends[sorted[p]].live) match_at(p);
    }
    std::vector<bool> live() const
    {
        std::vector<bool> result;
        for (const std::size_t r : sorted)
            result.push_back(ends[r].live);
        return result;
    }
};

// The runs of equal ends are noted where the keys say so.
void expect_runs(const edge_sort& t)
{
    for (std::uint32_t place = 1; place < t.count; ++place) {
        const std::uint32_t r = t.sorted[place];
        const std::uint32_t before = t.sorted[place - 1];
        const bool own = edge_same_end(t, before, r);
        const bool both = own && edge_same_end(t, edge_twin(before), edge_twin(r));
        ASSERT_EQ(edge_own_end(t, place - 1) != place, own);
        ASSERT_EQ(edge_pair_end(t, place - 1) != place, both);
    }
}

std::vector<bool> live_of(const edge_sort& table)
{
    std::vector<bool> result;
    for (std::uint32_t place = 0; place < table.count; ++place)
        result.push_back(edge_is_live(table, table.sorted[place]));
    return result;
}

// Corners and links of all triangles, by number.
std::vector<std::uint32_t> links_of(const mesh_fixture& m)
{
    std::vector<std::uint32_t> all;
    for (const tr_h t : m.trs)
        for (int i = 0; i < 3; ++i) {
            all.push_back(rec(t).vtx[i].i);
            all.push_back(rec(t).nbr[i].i);
        }
    return all;
}

using mesh_maker = mesh_fixture (*)(unsigned seed);

// Few points and many triangles make crowded edges, many points with equal places edges without
// length; the last have the numbers whose bits sort in another order than they do.
const mesh_maker mesh_makers[] = {
    [](unsigned seed) {
        return mesh_fixture(random_points(seed, 5), random_trs(seed, 5, 3 + seed % 9));
    },
    [](unsigned seed) {
        return mesh_fixture(random_points(seed, 12), random_trs(seed, 12, 10 + seed % 40), soup);
    },
    [](unsigned seed) {
        auto points = random_points(seed, 9);
        for (auto& p : points)
            p = {p[0] > 0 ? 1.0f : 0.0f, p[1] > 0.25f ? 1.0f : 0.0f, 0};
        return mesh_fixture(points, random_trs(seed, 9, 3 + seed % 20),
                            seed % 2 ? soup : shared_corners);
    },
    [](unsigned seed) {
        const float odd[] = {0.0f, -0.0f, -1e-45f, 1e-45f, 3e38f, -3e38f, HUGE_VALF, -HUGE_VALF};
        auto points = random_points(seed, 14);
        for (auto& p : points)
            p = {odd[(seed + points.size()) % 8], odd[static_cast<int>(8 + 4 * p[0]) % 8], p[2]};
        return mesh_fixture(points, random_trs(seed, 14, 5 + seed % 40), soup);
    },
};

} // namespace

TEST(stitch, fast_walks_do_what_plain_ones_do)
{
    for (const mesh_maker make : mesh_makers)
        for (unsigned seed = 0; seed < 150; ++seed) {
            SCOPED_TRACE(seed);
            std::vector<bool> live[2];
            std::vector<std::uint32_t> links[2];
            {
                mesh_fixture m = make(seed);
                obj_list objs = all_objs(&m);
                plain_stitch plain(objs);
                plain.drop_crowded();
                live[0] = plain.live();
                plain.match();
                links[0] = links_of(m);
                list_free(&objs);
            }
            mesh_fixture m = make(seed);
            obj_list objs = all_objs(&m);
            edge_sort table;
            ASSERT_TRUE(edge_sort_build(objs, &table));
            ASSERT_TRUE(edge_sort_run(&table));
            EXPECT_TRUE(table.ordered);
            expect_runs(table);
            edge_drop_crowded(&table);
            live[1] = live_of(table);
            edge_match(&table);
            links[1] = links_of(m);
            edge_sort_free(&table);
            list_free(&objs);
            ASSERT_EQ(live[0], live[1]);
            ASSERT_EQ(links[0], links[1]);
            ASSERT_TRUE(m.links_are_mutual());
            ASSERT_TRUE(m.counts_are_exact());
        }
}

// A NaN far away must not change what happens to the rest.
TEST(stitch, walks_without_order_link_the_same)
{
    std::vector<std::uint32_t> links[2];
    for (const bool ordered : {true, false}) {
        mesh_fixture m("a 0 0 0  b 1 0 0  c 1 1 0  d 0 1 0  e 0.5 0.5 1  x 9 9 9  y 9 8 9  z 8 9 9",
                       "abe bce cde dae abc acd xyz");
        if (!ordered) m.move('x', std::nanf(""), 0, 0);
        obj_list objs = all_objs(&m);
        edge_sort table;
        ASSERT_TRUE(edge_sort_build(objs, &table) && edge_sort_run(&table));
        EXPECT_EQ(table.ordered, ordered);
        expect_runs(table);
        edge_sort_free(&table);
        EXPECT_TRUE(stitch_edges(objs));
        list_free(&objs);
        EXPECT_EQ(m.link_count(), 18u);
        links[ordered] = links_of(m);
    }
    EXPECT_EQ(links[0], links[1]);
}

// The apex of a cone has one long run of own keys, and a stack of equal triangles one of equal
// edges: with steps for each pair of them this would not end in this test's time.
TEST(stitch, crowds_take_linear_time)
{
    const int n = 50000;
    std::vector<mesh_fixture::point> points = {{0, 0, 0}};
    std::vector<mesh_fixture::corners> trs = {{n, n + 1, n + 2}};
    for (int i = 1; i <= n; ++i) {
        points.push_back({1e-3f, 1e-8f * static_cast<float>(i), 0});
        for (int copy = 0; copy < 2; ++copy)
            trs.push_back({0, i, i % n + 1});
        trs.push_back({0, 1, 2});
    }
    points.push_back({9, 9, 9}); // all else in one corner of the tree, so that it stays small
    points.push_back({9, 8, 9});
    mesh_fixture m(points, trs);
    obj_list objs = all_objs(&m);
    EXPECT_TRUE(stitch_edges(objs));
    list_free(&objs);
    EXPECT_EQ(m.link_count(), 0u);
}

} // namespace velmora
