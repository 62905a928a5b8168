// The ways in which a whole mesh is made or moved at once, against the slow ones that they stand
// for.
#include "mesh/audit.h"
#include "mesh/box.h"
#include "mesh/cell_tree.h"
#include "mesh/folded_cells.h"
#include "mesh/leaf_cell.h"
#include "mesh/measure.h"
#include "mesh/renumber.h"
#include "mesh/soup_plant.h"
#include "mesh/tree_renew.h"
#include "repair/edge_groups.h"
#include "topo/edge_tbl.h"
#include "topo/merge.h"
#include "topo/topology.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace velmora {

namespace {

using soup_tr = std::vector<float>; // nine coordinates

// How a random soup is made.
struct soup_kind {
    const char* name;
    int count;
    int steps;         // of the lattice along an axis
    float tol;         // merge tolerance
    float jitter;      // by which some coordinates are off
    int jittered;      // one in so many
    bool flat;         // all z alike
    int doubled;       // one triangle in so many has two equal corners; 0 none
    float unit = 1.0f; // of the lattice
};

const soup_kind k_kinds[] = {
    {"sparse", 400, 40, 1e-6f, 0.0f, 8, false, 0},
    {"crowded", 900, 4, 1e-6f, 0.0f, 8, false, 0},
    {"flat", 900, 12, 1e-6f, 0.0f, 8, true, 0},
    {"doubled corners", 500, 6, 1e-6f, 0.0f, 8, false, 3},
    {"lonely doubled corners", 300, 60, 1e-6f, 0.0f, 8, false, 2},
    {"close points", 500, 6, 0.125f, 0.0625f, 8, false, 5},
    {"points at the bound", 400, 6, 0.125f, 0.125f, 8, false, 0},
    {"points past the bound", 400, 6, 0.125f, 0.1875f, 8, false, 0},
    {"few close points", 500, 9, 0.125f, 0.0625f, 300, false, 4},
    {"no tolerance", 400, 5, 0.0f, 0.0625f, 8, false, 4},
    {"one place", 60, 1, 1e-6f, 0.0f, 8, false, 0},
    {"far out", 500, 6, 1e-6f, 0.0f, 8, false, 3, 2e37f},
};

std::vector<soup_tr> random_soup(const soup_kind& kind, unsigned seed)
{
    std::mt19937 random(seed);
    const auto below = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
    std::vector<soup_tr> trs;
    for (int t = 0; t < kind.count; ++t) {
        soup_tr tr;
        const int at[3] = {below(kind.steps), below(kind.steps), below(kind.steps)};
        for (int i = 0; i < 9; ++i) {
            const int step = (at[i % 3] + below(3)) % kind.steps;
            const float off = below(kind.jittered) == 0 ? kind.jitter : 0.0f;
            const float zero = kind.jitter != 0.0f && below(kind.jittered) == 1 ? -0.0f : 0.0f;
            const float x = step == 0 && off == 0.0f ? zero : static_cast<float>(step) + off;
            tr.push_back(kind.flat && i % 3 == 2 ? 0.5f : x * kind.unit);
        }
        if (kind.doubled && below(kind.doubled) == 0)
            std::copy(tr.begin(), tr.begin() + 3, tr.begin() + 3 + 3 * below(2));
        trs.push_back(tr);
    }
    return trs;
}

enum planting_way {
    one_by_one,
    list_at_once,
    soup_at_once
};

// A mesh of its own from a soup, built in one way or the other.
struct planted {
    mesh_ctx ctx;
    topo_ctx topo = {};
    tr_soup soup = {};
    std::size_t size; // of the soup, which planting uses up
    aabb bbox = k_no_box;
    std::uint32_t level = 4;
    std::int32_t err = 0;

    explicit planted(const std::vector<soup_tr>& trs) : size(trs.size())
    {
        mesh_ctx_init(&ctx, tr_is_point);
        ctx.topo = &topo;
        for (const soup_tr& tr : trs) {
            float corners[3][3];
            std::copy(tr.begin(), tr.end(), &corners[0][0]);
            EXPECT_TRUE(soup_add(&soup, corners));
            for (const float* c : corners)
                box_add(&bbox, c);
        }
        soup_finish(&soup);
        box_widen(&bbox, 2.0 * margin());
    }
    planted(const planted&) = delete;
    planted& operator=(const planted&) = delete;
    ~planted()
    {
        soup_free(&soup);
        cell_tree_free(&ctx);
        cell_nodes_free();
        mesh_records_free();
    }

    static double margin()
    {
        return static_cast<double>(merge_tol) * k_reader_margin;
    }

    void make_root(std::uint32_t list_len)
    {
        ctx.root = cell_tree_new(bbox, list_len, level, 2 * soup.count, &ctx);
        ctx.grow_limit = tree_grow_limit(ctx.max_list);
    }

    void plant(planting_way way, std::uint32_t list_len)
    {
        make_root(list_len);
        if (way == soup_at_once) {
            ASSERT_EQ(soup_plant(&soup, plant_welded, margin(), &ctx), plant_done);
            EXPECT_TRUE(ctx.in_order);
        } else {
            obj_list list = {};
            ASSERT_TRUE(soup_to_list(soup, margin(), &list));
            if (way == list_at_once) {
                ASSERT_EQ(tree_add_all(list, &ctx), renew_done);
            } else {
                for (const obj_h o : list) {
                    tr_assign_id(o, false, &ctx);
                    ASSERT_TRUE(tree_add(o, nullptr, &ctx));
                }
            }
            list_free(&list);
        }
        if (topo.weld == weld_none || topo.weld == weld_some) {
            ASSERT_EQ(merge_vertices(&err, &ctx), stage_ok);
        }
    }

    // Everything that may be seen of the mesh, with names that do not depend on handles.
    std::string state()
    {
        std::ostringstream out;
        std::map<std::uint32_t, std::size_t> vtx_names;
        const auto put = [&](const float* p) {
            out << " at " << p[0] << ' ' << p[1] << ' ' << p[2];
        };
        out << ctx.tr_count << ' ' << ctx.max_level << ' ' << ctx.max_list << ' ' << ctx.grow_limit
            << ' ' << (ctx.longest_list > ctx.grow_limit) << ' ' << ctx.next_id;
        walk_leaves(ctx.root, everywhere, [&](cell_node& leaf) {
            out << "\nleaf";
            put(leaf.box.min);
            put(leaf.box.max);
            for (const obj_h o : leaf.list)
                out << ' ' << rec(rec(o).tr).id;
            return true;
        });
        for_each_obj_once(&ctx, [&](obj_h o, const cell_obj& obj) {
            const tr_rec& tr = rec(obj.tr);
            EXPECT_EQ(tr.cell, o);
            out << '\n' << tr.id << ": " << tr.flags << ' ' << obj.refs;
            put(obj.box.min);
            put(obj.box.max);
            for (int i = 0; i < 3; ++i) {
                const vtx_h v = tr.vtx[i];
                out << " v" << vtx_names.emplace(v.i, vtx_names.size()).first->second << " x"
                    << rec(v).refs << " n" << (live_nbr(tr, i) ? rec(live_nbr(tr, i)).id : 0);
                put(rec(v).pos);
            }
            return true;
        });
        return out.str();
    }
};

class planting : public testing::Test {
    void TearDown() override
    {
        merge_tol = k_default_merge_tol;
    }
};

template <class check_fn> void for_random_soups(const check_fn& check)
{
    for (const soup_kind& kind : k_kinds)
        for (unsigned seed = 0; seed < 6; ++seed) {
            SCOPED_TRACE(std::string(kind.name) + ", seed " + std::to_string(seed));
            merge_tol = kind.tol;
            check(random_soup(kind, seed), 3u + seed);
        }
}

// Each soup in several ways, the slow one first.
template <class make_fn> void expect_same_states(int ways, const make_fn& make)
{
    for_random_soups([&](const std::vector<soup_tr>& trs, std::uint32_t list_len) {
        std::string slow;
        for (int way = 0; way < ways; ++way) {
            planted p(trs);
            make(&p, list_len, way);
            const std::string state = p.state();
            if (way == 0) slow = state;
            EXPECT_EQ(state, slow);
            EXPECT_EQ(audit_counts(&p.ctx, nullptr, 0, stderr), 0u);
        }
    });
}

TEST_F(planting, makes_the_mesh_that_single_insertions_and_the_merge_make)
{
    expect_same_states(3, [](planted* p, std::uint32_t list_len, int way) {
        p->plant(static_cast<planting_way>(way), list_len);
    });
}

TEST_F(planting, welds_the_places_that_no_other_is_close_to)
{
    merge_tol = 0.125f;
    for (const float x : {1.0f, 1.125f, 1.25f}) {
        planted p({{0, 0, 0, 1, 0, 0, 0, 1, 0}, {x, 0, 0, 3, 0, 0, 0, 0, 3}});
        p.plant(soup_at_once, 8);
        EXPECT_EQ(p.topo.weld, x == 1.125f ? weld_some : weld_distinct) << x;
    }
}

// Drops every third triangle and replants some others, as repairs do.
void disturb(planted* p)
{
    obj_list dropped = {};
    obj_list moved = {};
    for_each_obj_once(&p->ctx, [&](obj_h o, const cell_obj& obj) {
        const std::uint32_t id = rec(obj.tr).id;
        EXPECT_TRUE(id % 3 != 0 || list_push(&dropped, o));
        EXPECT_TRUE(id % 7 != 1 || id % 3 == 0 || list_push(&moved, o));
        return true;
    });
    tr_remove_objs(dropped, &p->ctx);
    list_free(&dropped);
    for (const obj_h o : moved) {
        tree_remove(o, &p->ctx);
        rec(o).box = box_of_tr(rec(rec(o).tr));
        EXPECT_TRUE(tree_add(o, nullptr, &p->ctx));
    }
    list_free(&moved);
}

node_h follow_path(node_h root, std::uint32_t path)
{
    if (path == 1) return root;
    const cell_node& above = rec(follow_path(root, path / 2));
    return path % 2 ? above.high : above.low;
}

using place_in_box = std::array<float, 3>;

std::vector<place_in_box> random_places(const aabb& box, unsigned seed, std::size_t count)
{
    std::mt19937 random(seed);
    std::vector<place_in_box> places(count);
    for (place_in_box& p : places)
        for (std::size_t i = 0; i < 3; ++i)
            p[i] = box.min[i] +
                   (box.max[i] - box.min[i]) * (static_cast<float>(random() % 64) / 64.0f);
    return places;
}

// Asks for leaves here and there, which unfolds what is folded around them, once it has been told
// where they will be: by single searches, and by a map that grows with them.
void look_about(planted* p, unsigned seed, std::size_t count = 60, std::size_t looks = 10)
{
    leaf_map map;
    ASSERT_TRUE(leaf_map_open(p->ctx.max_level, &map));
    std::vector<leaf_cell> told;
    const std::vector<place_in_box> places = random_places(p->bbox, seed, count);
    for (const place_in_box& place : places) {
        leaf_cell alone;
        leaf_cell cell;
        EXPECT_TRUE(find_leaf_cell(p->ctx.root, place.data(), &map, &cell));
        EXPECT_TRUE(find_leaf_cell(p->ctx.root, place.data(), nullptr, &alone));
        EXPECT_EQ(alone.path, cell.path);
        told.push_back(cell);
    }
    leaf_map_close(&map);
    for (std::size_t n = 0; n < looks; ++n) {
        const node_h leaf = cell_find_leaf(p->ctx.root, places[n].data());
        EXPECT_TRUE(pt_in_box(rec(leaf).box, places[n].data()));
        EXPECT_EQ(follow_path(p->ctx.root, told[n].path), leaf);
        EXPECT_EQ(std::memcmp(&told[n].box, &rec(leaf).box, sizeof(aabb)), 0);
    }
}

TEST_F(planting, a_tree_is_the_same_whatever_was_asked_first)
{
    expect_same_states(2, [](planted* p, std::uint32_t list_len, int folded) {
        p->plant(folded ? soup_at_once : one_by_one, list_len);
        if (folded) look_about(p, list_len);
        disturb(p);
        if (!folded) return;
        look_about(p, list_len + 1);
        EXPECT_EQ(audit_counts(&p->ctx, nullptr, 0, stderr), 0u);
        renumber_mesh(renumber_all, &p->ctx);
        look_about(p, list_len + 2);
    });
}

// Takes triangles out and puts them in again at random: some from everywhere, and all in some part,
// so that cells get empty and fill again.
class restless {
  public:
    restless(planted* p, unsigned seed)
        : mesh(p), size((p->bbox.max[0] - p->bbox.min[0]) / 4.0f), seldom(seed % 2 ? 4 : 1),
          random(seed)
    {
        for (std::uint32_t i = 1; i < obj_pool.used; ++i)
            if (is_in_tree(rec(obj_h{i}))) objs.push_back(cell_obj_ref({i}));
        std::sort(objs.begin(), objs.end(), [](obj_h a, obj_h b) { return id(a) < id(b); });
    }
    restless(const restless&) = delete;
    restless& operator=(const restless&) = delete;
    ~restless()
    {
        for (const obj_h o : objs)
            cell_obj_release(o);
    }

    void turn()
    {
        const auto seed = static_cast<unsigned>(random());
        const std::vector<place_in_box> places = random_places(mesh->bbox, seed, 2);
        const place_in_box& spot = places[0];
        aabb part = k_no_box;
        box_add(&part, spot.data());
        box_add(&part, places[1].data());
        const unsigned rate = seed % 3 == 0 ? 1 : seed % 3 == 1 ? 3 : 40;
        const bool clears = seed % 4 == 0;
        for (const obj_h o : objs) {
            const bool here = random() % rate == 0;
            if (!is_in_tree(rec(o))) {
                if (here) put_in(o, spot);
            } else if (random() % 16 == 0 || (clears && box_overlap(rec(o).box, part))) {
                tree_remove(o, &mesh->ctx);
            }
        }
    }

    // Gives all boxes as large as the model, so that lists outgrow the limits.
    void spread()
    {
        for (const obj_h o : objs) {
            if (is_in_tree(rec(o))) tree_remove(o, &mesh->ctx);
            put_in_box(o, mesh->bbox);
        }
    }

  private:
    static std::uint32_t id(obj_h o)
    {
        return rec(rec(o).tr).id;
    }

    // With the box of the triangle, a larger one, or a small one that crowds around the spot.
    void put_in(obj_h o, const place_in_box& spot)
    {
        aabb box = box_of_tr(rec(rec(o).tr));
        if (id(o) % seldom == 0) box_widen(&box, static_cast<double>(size));
        if (id(o) % 5 == 4) {
            box = k_no_box;
            box_add(&box, spot.data());
            box_widen(&box, static_cast<double>(size) / (1 << random() % 8));
        }
        put_in_box(o, box);
    }

    void put_in_box(obj_h o, const aabb& box)
    {
        rec(o).box = box;
        bool added = false;
        EXPECT_TRUE(tree_add(o, &added, &mesh->ctx));
        if (!added) rec(o).box = k_no_box;
    }

    planted* mesh;
    float size;           // a quarter of the model's
    std::uint32_t seldom; // one in so many gets a larger box
    std::mt19937 random;
    std::vector<obj_h> objs;
};

TEST_F(planting, a_tree_is_the_same_however_much_comes_and_goes)
{
    expect_same_states(2, [](planted* p, std::uint32_t list_len, int folded) {
        p->level = list_len % 2 ? 8 : 5;
        p->plant(folded ? soup_at_once : one_by_one, list_len % 2 ? 4 * list_len : 2 * list_len);
        restless some(p, list_len);
        for (unsigned turn = 0; turn < 9; ++turn) {
            some.turn();
            if (folded && turn % 4 == 0) look_about(p, list_len + turn, 300, 1);
        }
        if (list_len == 3 && p->size < 450) some.spread();
    });
}

TEST_F(planting, memory_that_runs_out_where_cells_unfold_is_not_forgotten)
{
    const std::uint64_t blocks = heap_blocks();
    {
        planted p(random_soup(k_kinds[1], 0));
        p.plant(soup_at_once, 3);
        ASSERT_TRUE(the_fold.used);
        heap_fail_nth(1);
        EXPECT_FALSE(walk_leaves(p.ctx.root, everywhere, [](const cell_node&) { return true; }));
        heap_fail_nth(0);
        EXPECT_TRUE(tree_is_torn());
        EXPECT_EQ(unless_torn(&p.err), stage_failed);
        EXPECT_EQ(p.err, err_no_memory);
        obj_list met = {};
        std::uint32_t count = 0;
        ++p.ctx.visit_stamp;
        EXPECT_TRUE(tree_collect(p.ctx.root, &met, &count, &p.ctx));
        EXPECT_EQ(count, p.ctx.tr_count);
        list_free(&met);
    }
    EXPECT_FALSE(tree_is_torn());
    EXPECT_EQ(heap_blocks(), blocks);
}

TEST_F(planting, new_numbers_change_nothing_else)
{
    for_random_soups([](const std::vector<soup_tr>& trs, std::uint32_t list_len) {
        planted p(trs);
        p.plant(soup_at_once, list_len);
        edge_groups sides = {};
        p.topo.sides = &sides;
        EXPECT_EQ(topo_relink(&p.err, &p.ctx), stage_ok);
        edge_groups_free(&sides);
        list_free(&p.topo.edge_err_list);
        edge_tbl_free(&p.topo.edge_errs);
        disturb(&p);
        EXPECT_EQ(p.ctx.in_order, p.ctx.tr_count == 0);
        const std::string before = p.state();
        renumber_mesh(list_len % 2 ? renumber_all : renumber_keep_vertices, &p.ctx);
        EXPECT_TRUE(p.ctx.in_order);
        EXPECT_EQ(p.state(), before);
        EXPECT_EQ(audit_counts(&p.ctx, nullptr, 0, stderr), 0u);
        EXPECT_EQ(audit_links(&p.ctx, stderr), 0u);
    });
}

// With corners beyond 1e30 around it, even a box that holds nothing touches the root.
TEST_F(planting, a_triangle_without_numbers_is_not_lost)
{
    planted p({{-2e30f, 0, 0, 2e30f, 0, 0, 0, 2e30f, 0}});
    p.make_root(8);
    obj_list list = {};
    ASSERT_TRUE(soup_to_list(p.soup, 0.0, &list));
    rec(*begin(list)).box.min[0] = k_empty_box;
    rec(*begin(list)).box.max[0] = -k_empty_box;
    ASSERT_TRUE(tree_add(*begin(list), nullptr, &p.ctx));
    list_free(&list);
    renumber_mesh(renumber_all, &p.ctx);
    std::uint32_t met = 0;
    for_each_obj_once(&p.ctx, [&](obj_h, const cell_obj&) { return ++met != 0; });
    EXPECT_EQ(met, 1u);
    for_each_obj_once(&p.ctx, [](obj_h, const cell_obj& obj) {
        for (const vtx_h v : rec(obj.tr).vtx)
            rec(v).pos[0] = std::nanf("");
        return true;
    });
    EXPECT_EQ(tree_renew(&p.ctx), renew_declined);
}

// Widened by a large tolerance, the box of a NaN touches the root and none of its halves.
TEST_F(planting, boxes_that_are_lost_where_cells_split_are_added_one_by_one)
{
    merge_tol = 3.5e29f;
    const float nan = std::nanf("");
    planted p({{0, 0, 0, 1, 0, 0, 0, 1, 0}, {nan, 0, 0, nan, 1, 0, nan, 0, 1}});
    p.make_root(8);
    obj_list list = {};
    ASSERT_TRUE(soup_to_list(p.soup, p.margin(), &list));
    EXPECT_EQ(tree_add_all(list, &p.ctx), renew_declined);
    list_free(&list);
}

void renew_one_by_one(planted* p)
{
    obj_list all = {};
    std::uint32_t count = 0;
    ++p->ctx.visit_stamp;
    ASSERT_TRUE(tree_collect(p->ctx.root, &all, &count, &p->ctx));
    cell_make_leaf(p->ctx.root);
    p->ctx.tr_count = 0;
    for (const obj_h o : all) {
        rec(o).box = box_of_tr(rec(rec(o).tr));
        ASSERT_TRUE(tree_add(o, nullptr, &p->ctx));
    }
    list_free(&all);
    EXPECT_EQ(drop_collapsed(&p->err, &p->ctx), stage_ok);
}

TEST_F(planting, a_renewed_tree_is_that_of_single_insertions)
{
    expect_same_states(2, [](planted* p, std::uint32_t list_len, int at_once) {
        p->plant(soup_at_once, list_len);
        disturb(p);
        if (is_leaf(rec(p->ctx.root))) return;
        if (at_once) {
            EXPECT_EQ(tree_renew(&p->ctx), renew_done);
        } else {
            renew_one_by_one(p);
        }
    });
}

} // namespace

} // namespace velmora
