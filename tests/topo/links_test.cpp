#include "mesh/cell_tree.h"
#include "mesh/tree_renew.h"
#include "random_trs.h"
#include "topo/crowded_edge.h"
#include "topo/links.h"
#include "topo_mesh.h"

namespace velmora {

static void link(topo_mesh* m)
{
    ASSERT_EQ(link_nbrs(&m->topo, &m->err, &m->ctx), stage_ok);
    m->expect_sound();
}

// The chain of all objects is the reverse of the leaf's order, so the last triangle is first to
// claim, and the leaf's first triangle first to answer.
TEST(links, third_claimant_is_an_edge_error)
{
    topo_mesh m("a 0 0 0  b 1 0 0  c 0 1 0  d 0 -2 0  e 0 0 3", "abc abd abe");
    link(&m);
    EXPECT_EQ(m.nbrs("abe"), "abc - -");
    EXPECT_EQ(m.nbrs("abc"), "abe - -");
    EXPECT_EQ(m.nbrs("abd"), "- - -");
    EXPECT_EQ(m.topo.edge_errors, 2u);
    EXPECT_EQ(m.topo.edge_err_list.count, 1u);
    ASSERT_EQ(m.topo.edge_errs.count, 1u);
    ASSERT_EQ(m.topo.edge_errs.entries[0].count, 3u);
    EXPECT_EQ(m.topo.edge_errs.entries[0].users[0].obj, m.obj("abc"));
    EXPECT_EQ(m.topo.edge_errs.entries[0].users[2].obj, m.obj("abe"));
    EXPECT_EQ(m.flag_count(tr_edge_err | tr_edge_err2), 3u);

    // The table's links go with it, so the next step counts the same errors again.
    EXPECT_EQ(topo_update(&m.err, &m.ctx), stage_ok);
    m.expect_sound();
    EXPECT_EQ(m.topo.edge_errors, 2u);
    EXPECT_EQ(m.link_count(), 2u);
}

TEST(links, dead_neighbour_is_an_empty_slot)
{
    topo_mesh m("a 0 0 0  b 1 0 0  c 0 1 0  d 0 -1 0  e 0 0 1", "abc abd abe");
    m.at("abd").nbr[0] = m.tr("abe");
    links_may_dangle = true;
    tr_delete(m.tr("abe"), &m.ctx);
    m.at("abd").nbr[0] = m.trs[2];
    link(&m);
    EXPECT_EQ(m.nbrs("abc"), "abd - -");
    EXPECT_EQ(m.nbrs("abd"), "abc - -");
}

// Everything that a link pass leaves behind, in order.
static std::vector<std::uint32_t> outcome_of(const topo_mesh& m)
{
    std::vector<std::uint32_t> all = {m.topo.edge_errors, m.topo.edge_errs.count};
    for (const tr_h t : m.trs) {
        for (const tr_h n : rec(t).nbr)
            all.push_back(n.i);
        all.push_back(rec(t).flags & tr_edge_err ? 1 : 0);
    }
    for (const obj_h o : m.topo.edge_err_list)
        all.push_back(o.i);
    for (std::uint32_t e = 0; e < m.topo.edge_errs.count; ++e) {
        const edge_rec& edge = m.topo.edge_errs.entries[e];
        all.push_back(edge.a.i);
        all.push_back(edge.b.i);
        for (std::uint32_t u = 0; u < edge.count; ++u)
            all.push_back(edge.users[u].obj.i);
    }
    return all;
}

static void search_every_slot(topo_mesh* m)
{
    obj_list objs = {};
    ASSERT_EQ(collect_objs(&objs, &m->err, &m->ctx), stage_ok);
    for (const obj_h o : objs)
        for (int i = 0; i < 3; ++i)
            if (!rec(rec(o).tr).nbr[i]) find_nbr(o, i, &m->topo, &m->ctx);
    list_free(&objs);
}

// Links as a model file may bring them: between triangles that share no edge there.
static void link_at_random(topo_mesh* m, unsigned seed)
{
    std::mt19937 random(seed);
    for (std::size_t n = 0; n < m->trs.size() / 4; ++n) {
        const tr_h from = m->trs[random() % m->trs.size()];
        const tr_h to = m->trs[random() % m->trs.size()];
        const std::size_t i = random() % 3;
        const std::size_t k = random() % 3;
        if (from == to || rec(from).nbr[i] || rec(to).nbr[k]) continue;
        rec(from).nbr[i] = to;
        rec(to).nbr[k] = from;
    }
}

TEST(links, pass_finds_what_searching_every_slot_finds)
{
    for (unsigned seed = 1; seed < 200; ++seed) {
        SCOPED_TRACE(seed);
        const unsigned points = 4 + seed % 25; // few of them make crowds of users of one edge
        const auto trs = random_trs(seed, points, 3 + 2 * seed);
        std::vector<std::uint32_t> outcome[3];
        for (int how = 0; how < 3; ++how) {
            topo_mesh m(random_points(seed, points), trs);
            if (seed % 4 == 1) {
                m.fill_tree(24);
                ASSERT_EQ(tree_renew(&m.ctx), renew_done); // with folded cells, if checked
            }
            if (seed % 2) link_at_random(&m, seed);
            if (how == 2) edge_groups_build(&m.sides, &m.ctx);
            if (how == 0) search_every_slot(&m);
            if (how != 0) link(&m);
            outcome[how] = outcome_of(m);
        }
        ASSERT_EQ(outcome[0], outcome[1]);
        ASSERT_EQ(outcome[0], outcome[2]);
    }
}

// The triangles a-b-c0, a-b-c1 ... and two more whose corners are far off.
static std::vector<mesh_fixture::corners> page_trs(int pages)
{
    std::vector<mesh_fixture::corners> trs;
    for (int i = 0; i < pages; ++i)
        trs.push_back({0, 1, 2 + i});
    trs.push_back({2 + pages, 3 + pages, 4 + pages});
    return trs;
}

static std::vector<mesh_fixture::point> page_points(int pages)
{
    std::vector<mesh_fixture::point> points = {{0, 0, 0}, {1, 0, 0}};
    for (int i = 0; i < pages; ++i)
        points.push_back({0, 1, static_cast<float>(i)});
    points.insert(points.end(), {{-900, 0, 0}, {-901, 0, 0}, {-900, 1, 0}});
    return points;
}

// A claim of a triangle that has moved away from where it is listed, and so comes last: what it is
// linked to counts as an error unless it answers.
static std::uint32_t errors_with_one_astray(int pages, bool fast)
{
    topo_mesh m(page_points(pages), page_trs(pages));
    m.fill_tree(4);
    const tr_h asking = m.trs[1];
    const obj_h far = cell_obj_ref(rec(asking).cell);
    tree_remove(far, &m.ctx);
    rec(far).box = rec(rec(m.trs[static_cast<std::size_t>(pages)]).cell).box;
    EXPECT_TRUE(tree_add(far, nullptr, &m.ctx));
    cell_obj_release(far);
    rec(asking).nbr[1] = m.trs[2];
    rec(asking).nbr[2] = m.trs[0];
    links_may_dangle = true;
    if (fast) {
        edge_groups_build(&m.sides, &m.ctx);
        EXPECT_EQ(link_nbrs(&m.topo, &m.err, &m.ctx), stage_ok);
    } else {
        search_every_slot(&m);
    }
    return m.topo.edge_errors;
}

TEST(links, a_user_that_stands_elsewhere_and_does_not_answer_counts)
{
    for (const int pages : {3, 4, 70}) {
        EXPECT_GT(errors_with_one_astray(pages, false), 0u);
        EXPECT_EQ(errors_with_one_astray(pages, true), errors_with_one_astray(pages, false));
    }
}

TEST(links, crowds_outlive_a_want_of_memory)
{
    topo_mesh m("a 0 0 0  b 1 0 0  c 0 1 0", "abc");
    const cell_node& leaf = rec(m.ctx.root);
    crowded_edges crowds = {};
    const auto find = [&](std::uint32_t i) { return find_crowd(&crowds, {i}, {i + 1}, leaf); };
    std::uint32_t known = 1;
    for (; known <= 2 || crowds.count < crowds.capacity; ++known)
        ASSERT_TRUE(find(known));
    heap_fail_nth(2);
    EXPECT_FALSE(find(known));
    heap_fail_nth(0);
    EXPECT_TRUE(find(known));
    for (std::uint32_t i = 1; i <= known; ++i)
        EXPECT_EQ(find(i)->a, vtx_h{i});
    EXPECT_EQ(crowds.count, known);
    crowds_free(&crowds);
}

// A triangle that has moved out of its box is listed in other leaves than its corners lie in.
TEST(links, partner_is_only_found_where_the_tree_lists_it)
{
    topo_mesh m("a 0 0 0  b 1 0 0  c 0 1 0  d 0 -1 0", "abc abd");
    rec(m.vtx('a')).pos[0] = 50;
    rec(m.vtx('b')).pos[0] = 50;
    link(&m);
    EXPECT_EQ(m.link_count(), 0u);
}

} // namespace velmora
