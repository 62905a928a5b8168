#include "mesh/cell_tree.h"
#include "mesh_fixture.h"

#include <gtest/gtest.h>

namespace velmora {

namespace {

// Triangles that no tree holds.
struct loose_records : testing::Test {
    std::int32_t err = err_none;

    void TearDown() override
    {
        mesh_records_free();
    }
    tr_h make_tr()
    {
        const tr_h t = tr_new(&err);
        for (vtx_h& v : rec(t).vtx)
            v = vtx_ref(vtx_new());
        return t;
    }
};

} // namespace

TEST_F(loose_records, new_triangle_is_blank_though_its_slot_was_used)
{
    const tr_h used = tr_ref(make_tr());
    rec(used).flags = tr_loaded;
    rec(used).plane_class = 100;
    tr_cold* carried = cold_for_write(used);
    ASSERT_NE(carried, nullptr);
    carried->group = 9;
    carried->corner_val[1] = 2.0f;
    carried->extra.key = 4;
    tr_release(used);

    const tr_h t = tr_new(&err);
    ASSERT_EQ(t, used);
    const tr_rec& tr = rec(t);
    EXPECT_TRUE(tr.flags == 0 && tr.refs == 0 && tr.plane_class == 0 && !tr.vtx[0]);
    EXPECT_TRUE(cold(t).group == 0 && cold(t).extra.key == k_no_extra && !cold(t).mate);
    for (const float val : cold(t).corner_val)
        EXPECT_EQ(val, 65535.0f);
}

TEST_F(loose_records, count_of_a_vertex_wraps_and_the_vertex_lives_on)
{
    const vtx_h v = vtx_new();
    rec(v).pos[0] = 4.0f;
    while (rec(v).holders < 65535)
        vtx_ref(v);
    EXPECT_EQ(rec(v).refs, 65535u);
    EXPECT_EQ(rec(vtx_ref(v)).refs, 0u);
    vtx_release(v); // from 0 it does not go back up
    EXPECT_EQ(rec(v).refs, 0u);
    EXPECT_EQ(rec(vtx_ref(v)).refs, 1u);
    vtx_release(v);
    EXPECT_EQ(rec(v).refs, 0u);
    EXPECT_NE(vtx_new(), v);
    EXPECT_EQ(rec(v).pos[0], 4.0f);
    while (rec(v).holders > 1)
        vtx_release(v);
    vtx_release(v);
    EXPECT_EQ(vtx_new(), v);
}

TEST_F(loose_records, overwritten_corner_leaves_the_counts_that_decide)
{
    vtx_h slot = vtx_ref(vtx_new());
    const vtx_h old = vtx_ref(slot);
    const vtx_h other = vtx_ref(vtx_new());
    vtx_overwrite(&slot, other);
    EXPECT_EQ(slot, other);
    EXPECT_EQ(rec(old).refs, 2u);
    EXPECT_EQ(rec(old).holders, 1u);
    EXPECT_EQ(rec(other).refs, 1u);
    EXPECT_EQ(rec(other).holders, 2u);
    vtx_overwrite(&slot, other);
    EXPECT_EQ(rec(other).holders, 2u);
    vtx_release(other);
    EXPECT_EQ(rec(other).refs, 0u); // the slot still reads it
    EXPECT_EQ(rec(other).holders, 1u);
}

TEST_F(loose_records, marks_have_numbers_and_other_numbers_have_none)
{
    const tr_h t = make_tr();
    std::uint64_t marked = 0;
    std::uint64_t problems = 0;
    for (int number = -1; number < 66; ++number) {
        rec(t).flags = 0;
        tr_set_mark(t, number);
        marked |= rec(t).flags;
    }
    rec(t).flags = 0;
    tr_set_mark(t, 27);
    EXPECT_EQ(rec(t).flags, tr_edge_err | tr_edge_err2);
    EXPECT_EQ(marked, 0x8AAAA8060ull);
    for (int bit = 0; bit < 64; ++bit) {
        rec(t).flags = 1ull << bit;
        if (tr_has_problem(rec(t))) problems |= 1ull << bit;
    }
    EXPECT_EQ(problems, 0x2AAAA8000ull);
}

TEST_F(loose_records, identities_start_above_the_number_of_triangles)
{
    mesh_ctx ctx = {};
    const obj_h o = cell_obj_new();
    EXPECT_FALSE(tr_assign_id(o, false, &ctx));
    rec(o).tr = make_tr();
    std::uint32_t& id = rec(rec(o).tr).id;
    ctx.tr_count = 7;
    EXPECT_TRUE(tr_assign_id(o, false, &ctx));
    EXPECT_EQ(id, 8u);
    ctx.tr_count = 20;
    EXPECT_TRUE(tr_assign_id(o, false, &ctx));
    EXPECT_EQ(id, 8u);
    EXPECT_EQ(ctx.next_id, 20u); // raised all the same
    EXPECT_TRUE(tr_assign_id(o, true, &ctx));
    EXPECT_EQ(id, 21u);
}

static const char* const k_quad = "a 0 0 0  b 1 0 0  c 1 1 0  d 0 1 0";

TEST(links, to_the_dead_read_as_none_and_never_as_a_stranger)
{
    mesh_fixture m(k_quad, "abc acd");
    m.at("acd").nbr[0] = m.tr("abc"); // which does not answer
    links_may_dangle = true;
    EXPECT_EQ(live_nbr(m.at("acd"), 0), m.tr("abc"));
    tr_delete(m.tr("abc"), &m.ctx);
    EXPECT_EQ(m.nbrs("acd"), "x - -");
    EXPECT_FALSE(live_nbr(m.at("acd"), 0));
    const tr_h stranger = tr_new(&m.err);
    EXPECT_NE(stranger, m.tr("abc"));
}

// Whoever still holds a deleted triangle may have it deleted again.
TEST(deletion, of_what_others_hold_counts_once)
{
    mesh_fixture m(k_quad, "abc acd adb");
    const tr_h by_triangle = tr_ref(m.tr("abc"));
    obj_list by_object = {};
    ASSERT_TRUE(list_push(&by_object, m.obj("acd")));
    for (int times = 0; times < 2; ++times)
        for (const char* name : {"abc", "acd"}) {
            tr_delete(m.tr(name), &m.ctx);
            EXPECT_EQ(m.at(name).refs, 1u);
            EXPECT_FALSE(m.at(name).cell);
        }
    EXPECT_EQ(m.ctx.tr_count, 1u);
    EXPECT_EQ(rec(m.vtx('c')).refs, 2u);

    tr_release(by_triangle);
    list_free(&by_object);
    EXPECT_EQ(m.at("abc").refs, 0u);
    EXPECT_EQ(m.at("acd").refs, 0u);
    EXPECT_NE(tr_new(&m.err), m.tr("abc")); // still no slot for strangers
    EXPECT_TRUE(m.counts_are_exact());
}

TEST(obj_list, newest_entry_is_in_front)
{
    mesh_fixture m(k_quad, "abc acd adb");
    obj_list list = {};
    for (const char* name : {"abc", "acd", "adb"})
        ASSERT_TRUE(list_push(&list, m.obj(name)));
    std::string order;
    for (const obj_h o : list)
        order += m.name(rec(o).tr) + " ";
    EXPECT_EQ(order, "adb acd abc ");
    EXPECT_EQ(list_at(list, 0), m.obj("adb"));

    bool died = true;
    EXPECT_TRUE(list_take_out(&list, m.obj("acd"), &died));
    EXPECT_FALSE(died);
    EXPECT_FALSE(list_take_out(&list, m.obj("acd"), &died));
    EXPECT_EQ(list_at(list, 0), m.obj("adb"));
    EXPECT_EQ(list_at(list, 1), m.obj("abc"));
    EXPECT_TRUE(m.counts_are_exact({&list}));
    list_free(&list);
    EXPECT_TRUE(m.counts_are_exact());
}

} // namespace velmora
