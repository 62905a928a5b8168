#include "linked.h"
#include "repair/winding.h"

#include <gtest/gtest.h>

namespace velmora {
namespace {

// The heights tell the points apart, 0 for a to 5 for f.
const char* const k_fan = "a 0 0 0  b 2 0 1  c 0 2 2  d 2 -2 3  e 2 2 4  f -2 1 5";

std::string letters(tr_h t)
{
    std::string s;
    for (int i = 0; i < 3; ++i)
        s += "abcdef"[static_cast<int>(corner_pos(rec(t), i)[2])];
    return s;
}

TEST(swap_corners, takes_along_what_lies_at_corners_and_edges)
{
    const int pairs[][2] = {{0, 1}, {1, 2}, {0, 2}, {1, 0}, {2, 1}, {2, 0}};
    for (const int* p : pairs) {
        mesh_fixture m(k_fan, "abc bad bce caf");
        m.link_all();
        const tr_h t = m.tr("abc");
        tr_cold* c = cold_for_write(t);
        c->extra.key = 7;
        for (int i = 0; i < 3; ++i) {
            c->extra.values[i][5] = static_cast<unsigned char>(i);
            c->corner_val[i] = static_cast<float>(i);
        }
        rec(t).branch_edges = 1;
        // Edge slot 0 bears marks 38 and 45, slot 1 mark 43.
        rec(t).flags = tr_loaded | 1ull << 38 | 1ull << 43 | 1ull << 45;
        swap_corners(t, p[0], p[1]);

        for (int i = 0; i < 3; ++i) {
            // Each edge still has the neighbour that shares it, and its marks.
            const tr_h n = rec(t).nbr[i];
            EXPECT_GE(tr_edge_index(rec(t).vtx[i], rec(t).vtx[next3(i)], rec(n)), 0);
            const bool was_0 = n == m.tr("bad");
            const bool was_1 = n == m.tr("bce");
            EXPECT_EQ(rec(t).flags >> (38 + i) & 1, was_0 ? 1u : 0u);
            EXPECT_EQ(rec(t).flags >> (45 + i) & 1, was_0 ? 1u : 0u);
            EXPECT_EQ(rec(t).flags >> (42 + i) & 1, was_1 ? 1u : 0u);
            // Each corner still has its values.
            const std::size_t old_place = std::string("abc").find(letters(t)[unsigned(i)]);
            EXPECT_EQ(c->extra.values[i][5], old_place);
            EXPECT_EQ(c->corner_val[i], static_cast<float>(old_place));
        }
        EXPECT_TRUE(rec(t).flags & tr_winding_turned);
        EXPECT_EQ(rec(t).branch_edges, 1);
        swap_corners(t, p[1], p[0]);
        EXPECT_EQ(rec(t).flags, tr_loaded | 1ull << 38 | 1ull << 43 | 1ull << 45);
        EXPECT_EQ(letters(t), "abc");
    }
}

TEST(match_winding, turns_every_neighbour_against_every_edge)
{
    const char* const around[] = {"abd", "bda", "dab", "bad", "adb", "dba"};
    const char* const own[] = {"abc", "cab", "bca"};
    for (const char* nb : around)
        for (int slot = 0; slot < 3; ++slot) {
            const std::string me = own[slot]; // edge a-b lies at the slot
            mesh_fixture m(k_fan, (me + " " + nb).c_str());
            const tr_h t = m.tr(nb);
            match_winding(m.at(me), t, slot);
            EXPECT_TRUE(wound_alike(m.at(me), rec(t))) << me << " " << nb;
            EXPECT_EQ(tr_edge_index(m.corner(me, 'a'), m.corner(me, 'b'), rec(t)), next3(slot));
            const bool was_alike = std::string("abdab").find(nb) == std::string::npos;
            EXPECT_EQ((rec(t).flags & tr_winding_turned) != 0, !was_alike) << me << " " << nb;
        }
}

struct spread_run {
    tr_queue queue = {};
    tr_queue deferred = {};
    std::uint32_t normals = 0;
    std::int32_t err = err_none;

    spread_run(tr_h start)
    {
        tr_recompute_nrm(&rec(start), true, nullptr);
        EXPECT_TRUE(tr_queue_push(&queue, start));
    }
    ~spread_run()
    {
        tr_queue_free(&queue);
        tr_queue_free(&deferred);
    }
    stage_result run(spread_pass pass)
    {
        tr_queue* from = pass == spread_clean ? &queue : &deferred;
        return spread_winding(pass, {from, &deferred, true, &normals}, &err);
    }
};

TEST(spread, reaches_all_links_and_goes_through_what_has_no_normal)
{
    // A strip with a flat triangle bcx in it, as a T joint leaves one.
    mesh_fixture m("a 0 0 0  b 2 0 0  c 0 2 0  x 1 1 0  d 2 2 0  e 3 2 0", "abc bcx bxd cxd bde");
    m.link_all();
    spread_run s(m.tr("abc"));
    EXPECT_EQ(s.run(spread_clean), stage_ok);
    EXPECT_EQ(m.flag_count(tr_nrm_done), 5u);
    EXPECT_EQ(m.flag_count(tr_no_nrm), 1u);
    EXPECT_EQ(s.normals, 3u);
    EXPECT_EQ(s.deferred.count, 0u);
    for (const char* t : {"abc", "bxd", "cxd", "bde"})
        EXPECT_GT(m.at(t).nrm[2], 0.9f) << t;
}

TEST(spread, crosses_branches_and_defects_only_in_the_second_pass)
{
    for (const std::uint64_t defect : {std::uint64_t{0}, std::uint64_t{tr_edge_err}}) {
        mesh_fixture m(k_fan, "abc bad bec");
        m.link_all();
        m.at("bad").flags |= defect;
        if (!defect) m.at("abc").branch_edges = 1; // edge ab
        spread_run s(m.tr("abc"));
        EXPECT_EQ(s.run(spread_clean), stage_ok);
        EXPECT_FALSE(m.at("bad").flags & tr_nrm_done);
        EXPECT_TRUE(m.at("bec").flags & tr_nrm_done);
        ASSERT_EQ(s.deferred.count, 1u);
        EXPECT_EQ(tr_queue_at(s.deferred, 0), m.tr("abc"));
        EXPECT_EQ(s.run(spread_all), stage_ok);
        EXPECT_TRUE(m.at("bad").flags & tr_nrm_done);
    }
}

TEST(spread, clears_links_to_the_dead)
{
    mesh_fixture m(k_fan, "abc bad");
    m.at("abc").nbr[0] = m.tr("bad"); // not answered
    tr_delete(m.tr("bad"), &m.ctx);
    ASSERT_EQ(m.nbrs("abc"), "x - -");
    spread_run s(m.tr("abc"));
    EXPECT_EQ(s.run(spread_clean), stage_ok);
    EXPECT_EQ(m.nbrs("abc"), "- - -");
}

} // namespace
} // namespace velmora
