#include "mesh/cell_tree.h"
#include "topo/edge_tbl.h"
#include "topo/edge_users.h"
#include "topo_mesh.h"

#include <vector>

namespace velmora {

// Four triangles around the edge a-b, areas falling from c to f.
static const char* const k_book = "a 0 0 0  b 1 0 0  c 0 8 0  d 0 0 4  e 0 -2 0  f 0 0 -1 g 0 9 9";

TEST(edge_tbl, error_gathers_marks_and_sorts_all_users)
{
    topo_mesh m(k_book, "abc bad abe fab acg");
    ASSERT_TRUE(
        note_edge_error(m.vtx('b'), m.vtx('a'), &m.topo.edge_errs, m.obj("abe"), nullptr, &m.ctx));
    ASSERT_EQ(m.topo.edge_errs.count, 1u);
    const edge_rec& edge = m.topo.edge_errs.entries[0];
    ASSERT_EQ(edge.count, 4u);
    EXPECT_EQ(edge.users[0].obj, m.obj("fab"));
    EXPECT_EQ(edge.users[0].slot, 1u);
    EXPECT_EQ(edge.users[1].obj, m.obj("abe"));
    EXPECT_EQ(edge.users[2].obj, m.obj("bad"));
    EXPECT_EQ(edge.users[3].obj, m.obj("abc"));
    EXPECT_EQ(m.flag_count(tr_edge_err | tr_edge_err2), 4u);
    EXPECT_EQ(m.at("acg").flags & tr_edge_err, 0u);

    ASSERT_TRUE(
        note_edge_error(m.vtx('a'), m.vtx('b'), &m.topo.edge_errs, m.obj("abc"), nullptr, &m.ctx));
    EXPECT_EQ(m.topo.edge_errs.count, 1u);
    EXPECT_EQ(m.topo.edge_errs.entries[0].count, 4u);
    EXPECT_TRUE(m.holders_are_exact());
}

TEST(edge_tbl, freeing_takes_marks_and_links_of_the_edge_away)
{
    topo_mesh m(k_book, "abc bad abe fab acg");
    m.link("abc", "bad");
    m.link("abc", "acg");
    ASSERT_TRUE(
        note_edge_error(m.vtx('a'), m.vtx('b'), &m.topo.edge_errs, m.obj("abe"), nullptr, &m.ctx));
    tr_delete(m.tr("fab"), &m.ctx);
    EXPECT_TRUE(m.holders_are_exact()) << "the table still holds it";
    edge_tbl_free(&m.topo.edge_errs);
    EXPECT_EQ(m.tr_count(), 4u);
    EXPECT_EQ(m.topo.edge_errs.count, 0u);
    EXPECT_EQ(m.flag_count(tr_edge_err), 0u);
    EXPECT_EQ(m.flag_count(tr_edge_err2), 0u);
    EXPECT_EQ(m.nbrs("abc"), "- - acg");
    EXPECT_EQ(m.nbrs("bad"), "- - -");
    EXPECT_TRUE(m.links_are_mutual());
    EXPECT_TRUE(m.holders_are_exact());
}

// The order of equals decides which links of twins survive, so the table of sides may not have a
// say. A user that stands out of reach is none.
TEST(edge_tbl, users_of_equal_area_stand_as_the_tree_has_them)
{
    const auto users = [](bool with_sides, bool with_lookup) {
        topo_mesh m("a 0 0 0  b 2 0 0  c 0 3 0  d 1 -1 1  e 0 -3 0", "abc bca adb bae abe");
        m.fill_tree(2);
        const obj_h far = cell_obj_ref(m.obj("abe"));
        tree_remove(far, &m.ctx);
        rec(far).box = {{1, 2, 0}, {1, 2, 0}};
        EXPECT_TRUE(tree_add(far, nullptr, &m.ctx));
        cell_obj_release(far);
        if (with_sides) {
            edge_groups_build(&m.sides, &m.ctx);
            for_each_edge_group(&m.sides, [](const edge_group&) {});
        }
        user_lookup lookup = user_lookup_open(m.sides, m.ctx);
        EXPECT_EQ(lookup.sides != nullptr, with_sides);
        EXPECT_TRUE(note_edge_error(m.vtx('a'), m.vtx('b'), &m.topo.edge_errs, m.obj("adb"),
                                    with_lookup ? &lookup : nullptr, &m.ctx));
        user_lookup_close(&lookup);
        std::vector<std::uint32_t> objs;
        const edge_rec& edge = m.topo.edge_errs.entries[0];
        for (std::uint32_t i = 0; i < edge.count; ++i)
            objs.push_back(edge.users[i].obj.i);
        EXPECT_TRUE(m.holders_are_exact());
        return objs;
    };
    EXPECT_EQ(users(false, false).size(), 4u);
    EXPECT_EQ(users(true, false), users(false, false));
    EXPECT_EQ(users(true, true), users(false, false));
}

} // namespace velmora
