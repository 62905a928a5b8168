#include "mesh/cell_tree.h"
#include "mesh/vec.h"
#include "mesh_fixture.h"
#include "random_trs.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace velmora {

namespace {

// Leaves as the names of their objects, inner nodes as "(low high)".
template <class name_fn> std::string shape_of(node_h n, const name_fn& name)
{
    const cell_node& node = rec(n);
    if (!is_leaf(node))
        return "(" + shape_of(node.low, name) + " " + shape_of(node.high, name) + ")";
    std::string names;
    for (const obj_h o : node.list)
        names += name(o);
    return names;
}

constexpr aabb k_cube = {{0, 0, 0}, {8, 8, 8}};

// A tree over the cube from 0 to 8, whose objects are boxes named by letters.
struct box_tree : testing::Test {
    mesh_ctx ctx;
    std::string letters;
    std::vector<obj_h> objs;

    box_tree()
    {
        mesh_ctx_init(&ctx, nullptr);
        ctx.root = cell_tree_new(k_cube, 0, 0, 0, &ctx);
    }
    void TearDown() override
    {
        heap_fail_nth(0);
        cell_tree_free(&ctx);
        cell_nodes_free();
        mesh_records_free();
    }
    void set_limits(std::uint32_t list, std::uint32_t level)
    {
        ctx.max_list = list;
        ctx.max_level = level;
    }
    bool add(char letter, const aabb& box)
    {
        const obj_h o = cell_obj_new();
        rec(o).box = box;
        letters += letter;
        objs.push_back(o);
        bool added = false;
        EXPECT_TRUE(tree_add(o, &added, &ctx));
        return added;
    }
    // A box that spans the cube in y and z.
    bool add_slab(char letter, float from, float to)
    {
        return add(letter, {{from, 0, 0}, {to, 8, 8}});
    }
    obj_h obj(char letter) const
    {
        return objs[letters.find(letter)];
    }
    std::string name(obj_h o) const
    {
        for (std::size_t i = 0; i < objs.size(); ++i)
            if (objs[i] == o) return {letters[i]};
        return "?";
    }
    std::string shape() const
    {
        return shape_of(ctx.root, [this](obj_h o) { return name(o); });
    }
};

struct sizing_case {
    std::uint32_t estimate;
    std::uint32_t max_list;
    std::uint32_t max_level;
};

const sizing_case sizing_cases[] = {
    {0, 32, 3},         {95, 32, 3},         {96, 32, 2}, // 3 leaves need fewer levels than 2
    {127, 32, 2},       {128, 32, 3},        {2000, 32, 6},
    {1999999, 32, 16},  {2000000, 64, 15},   {3999999, 64, 16},
    {4000000, 128, 15}, {20000000, 128, 18}, {0xFFFFFFFFu, 128, 21},
};

} // namespace

TEST_F(box_tree, limits_follow_from_the_estimate)
{
    for (const sizing_case& c : sizing_cases) {
        SCOPED_TRACE(c.estimate);
        cell_free(cell_tree_new(k_cube, 5, 0, c.estimate, &ctx)); // half of a limit is none
        EXPECT_EQ(ctx.max_list, c.max_list);
        EXPECT_EQ(ctx.max_level, c.max_level);
        EXPECT_EQ(ctx.grow_limit, 10 * c.max_list);
    }
    cell_free(cell_tree_new(k_cube, 5, 6, 1000, &ctx));
    EXPECT_EQ(ctx.max_list, 5u);
    EXPECT_EQ(ctx.max_level, 6u);
    EXPECT_EQ(ctx.grow_limit, 1280u); // stays
}

TEST_F(box_tree, limits_grow_a_step_when_a_list_was_far_too_long)
{
    set_limits(4, 20);
    ctx.grow_limit = ctx.longest_list = 40;
    add_slab('a', 0, 1);
    EXPECT_EQ(ctx.max_level, 20u);
    ctx.longest_list = 41;
    add_slab('b', 0, 1);
    EXPECT_EQ(ctx.max_level, 21u);
    EXPECT_EQ(ctx.max_list, 8u);
    EXPECT_EQ(ctx.grow_limit, 80u);
    ctx.longest_list = 1000;
    add_slab('c', 0, 1);
    EXPECT_EQ(ctx.max_level, 21u); // and no further
    EXPECT_EQ(ctx.max_list, 8u);
}

TEST_F(box_tree, full_leaf_splits_before_it_takes_another)
{
    set_limits(3, 1);
    add_slab('a', 1, 2);
    add_slab('b', 2, 6);
    add_slab('c', 4, 4); // touches the cut
    EXPECT_EQ(shape(), "cba");
    EXPECT_EQ(ctx.deepest_level, 0u);
    add_slab('d', 3, 5);
    EXPECT_EQ(shape(), "(dabc dbc)"); // the split turns the order around
    EXPECT_EQ(ctx.longest_list, 4u);
    EXPECT_EQ(ctx.deepest_level, 1u);
    EXPECT_EQ(rec(obj('c')).refs, 2u);
    EXPECT_EQ(rec(obj('a')).refs, 1u);
    add_slab('e', 0, 8); // at the level limit lists grow
    EXPECT_EQ(shape(), "(edabc edbc)");
    EXPECT_EQ(ctx.tr_count, 5u);
}

// Each split cuts the next axis in the middle, down to the limit for one object; emptied cells
// collapse upwards.
TEST_F(box_tree, grows_and_shrinks_by_axes_in_turn)
{
    set_limits(1, 4);
    add('a', {{0, 0, 0}, {1, 1, 1}});
    add('b', {{0, 0, 0}, {1, 1, 1}});
    EXPECT_EQ(shape(), "((((ba ) ) ) )");
    EXPECT_EQ(ctx.deepest_level, 4u);
    const float origin[3] = {0, 0, 0};
    const node_h leaf = cell_find_leaf(ctx.root, origin);
    const float corner[3] = {2, 4, 4};
    EXPECT_TRUE(pts_same(rec(leaf).box.max, corner));
    const float on_cut[3] = {2, 0, 0};
    const float outside[3] = {4, 8 + 0x1p-20f, 0};
    EXPECT_EQ(cell_find_leaf(ctx.root, on_cut), leaf); // below it
    EXPECT_FALSE(cell_find_leaf(ctx.root, outside));

    add('c', {{0, 0, 7}, {1, 1, 8}});
    EXPECT_EQ(shape(), "((((ba ) c) ) )");
    tree_remove(obj('a'), &ctx);
    EXPECT_EQ(shape(), "((((b ) c) ) )");
    tree_remove(obj('b'), &ctx);
    EXPECT_EQ(shape(), "((( c) ) )"); // the cut beside c stays
    tree_remove(obj('c'), &ctx);
    EXPECT_EQ(shape(), "");
    EXPECT_TRUE(is_leaf(rec(ctx.root)));
    EXPECT_EQ(ctx.tr_count, 0u);
}

TEST_F(box_tree, removal_counts_once_for_all_leaves_and_all_calls)
{
    set_limits(1, 1);
    add_slab('a', 3, 5);
    add_slab('b', 0, 8);
    const obj_h a = cell_obj_ref(obj('a'));
    for (int times = 0; times < 2; ++times) {
        tree_remove(a, &ctx);
        EXPECT_EQ(shape(), "(b b)");
        EXPECT_EQ(ctx.tr_count, 1u);
        EXPECT_EQ(rec(a).refs, 1u);
    }
    cell_obj_release(a);
    tree_remove(a, &ctx); // dead
    EXPECT_EQ(ctx.tr_count, 1u);
    EXPECT_TRUE(add_slab('c', 9, 10)); // outside: counted, but listed nowhere
    tree_remove(obj('c'), &ctx);
    EXPECT_EQ(shape(), "(b b)");
    EXPECT_EQ(ctx.tr_count, 2u);
}

// The hook refuses one half, by the leaf's box; the last leaf's answer stands.
TEST_F(box_tree, last_leaf_decides_on_a_refusal)
{
    set_limits(1, 1);
    add_slab('a', 3, 5);
    add_slab('b', 3, 5);
    ctx.insert_hook = [](node_h leaf, obj_h) { return rec(leaf).box.min[0] > 0.0f; };
    EXPECT_FALSE(add_slab('c', 3, 5));
    EXPECT_EQ(shape(), "(cba ba)");
    EXPECT_EQ(ctx.tr_count, 2u);
    ctx.insert_hook = [](node_h leaf, obj_h) { return rec(leaf).box.max[0] < 8.0f; };
    EXPECT_TRUE(add_slab('d', 3, 5));
    EXPECT_EQ(shape(), "(cba dba)");
    EXPECT_EQ(ctx.tr_count, 3u);
}

// Two of three triangles, and with the last ones whole branches.
TEST(cell_tree, removing_many_at_once_gives_the_tree_of_removing_each)
{
    std::string shapes[2];
    for (const bool at_once : {false, true}) {
        mesh_fixture m(random_points(3, 90), random_trs(3, 90, 150));
        m.fill_tree(2);
        const auto name = [](obj_h o) { return std::to_string(o.i) + ","; };
        const std::string full = shape_of(m.ctx.root, name);
        obj_list gone = {};
        for (std::size_t i = 0; i < m.trs.size(); ++i)
            EXPECT_TRUE((i % 3 == 0 && i <= 60) || list_push(&gone, rec(m.trs[i]).cell));
        if (at_once) tr_remove_objs(gone, &m.ctx);
        for (const obj_h o : gone)
            if (!at_once) tr_remove_obj(o, &m.ctx);
        list_free(&gone);
        shapes[at_once] = shape_of(m.ctx.root, name);
        EXPECT_NE(shapes[at_once], full);
        EXPECT_EQ(m.ctx.tr_count, m.tr_count());
        EXPECT_TRUE(m.counts_are_exact());
    }
    EXPECT_EQ(shapes[0], shapes[1]);
    EXPECT_EQ(shapes[0].find("( )"), std::string::npos); // no pair of empty leaves
}

} // namespace velmora
