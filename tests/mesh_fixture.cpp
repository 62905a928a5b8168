#include "mesh_fixture.h"

#include "mesh/box.h"
#include "mesh/cell_tree.h"
#include "mesh/measure.h"

#include <algorithm>
#include <set>
#include <sstream>

namespace velmora {

namespace {

// A mistake in a test's own words: nothing that follows would mean anything.
[[noreturn]] void give_up(const std::string& why)
{
    std::fprintf(stderr, "mesh_fixture: %s\n", why.c_str());
    std::abort();
}

std::string sorted_letters(std::string s)
{
    std::sort(s.begin(), s.end());
    return s;
}

vtx_h new_vtx(const mesh_fixture::point& p)
{
    const vtx_h v = vtx_new();
    if (!v) give_up("no memory for a vertex");
    std::copy(p.begin(), p.end(), rec(v).pos);
    return v;
}

} // namespace

mesh_fixture::mesh_fixture(const char* points, const char* triangles, mesh_form form)
{
    std::istringstream in(points);
    char letter = 0;
    for (point p{}; in >> letter >> p[0] >> p[1] >> p[2];) {
        if (letters_.find(letter) != std::string::npos) give_up("a letter names two points");
        letters_ += letter;
        pts.push_back(p);
    }
    std::istringstream list(triangles);
    for (std::string name; list >> name;) {
        corners c{};
        for (std::size_t i = 0; i < 3; ++i) {
            const std::size_t place = name.size() == 3 ? letters_.find(name[i]) : std::string::npos;
            if (place == std::string::npos) give_up("no points for triangle " + name);
            c[i] = static_cast<int>(place);
        }
        tris.push_back(c);
        names.push_back(name);
    }
    build(form);
}

mesh_fixture::mesh_fixture(const std::vector<point>& points, const std::vector<corners>& triangles,
                           mesh_form form)
    : names(triangles.size(), "???"), pts(points), tris(triangles)
{
    build(form);
}

mesh_fixture::~mesh_fixture()
{
    heap_free(sides.sides);
    heap_free(sides.starts);
    list_free(&topo.edge_err_list);
    list_free(&topo.lone_list);
    cell_tree_free(&ctx);
    cell_nodes_free();
    mesh_records_free();
    merge_tol = k_default_merge_tol;
    kill_value = k_default_kill_value;
}

void mesh_fixture::build(mesh_form form)
{
    mesh_records_free();
    mesh_ctx_init(&ctx, nullptr);
    model = {};
    topo = {};
    topo.sides = &sides;
    ctx.model = &model;
    ctx.topo = model.topo = &topo;

    std::vector<vtx_h> shared;
    if (form == shared_corners)
        for (const point& p : pts)
            shared.push_back(new_vtx(p));
    obj_list chain = {};
    std::uint32_t count = 0;
    for (const corners& c : tris) {
        const tr_h t = tr_new(&err);
        if (!t || !tr_wrap(t, &count, &chain, &err)) give_up("no memory for a triangle");
        rec(t).flags = tr_loaded;
        for (std::size_t i = 0; i < 3; ++i) {
            const auto place = static_cast<std::size_t>(c[i]);
            rec(t).vtx[i] = vtx_ref(form == shared_corners ? shared[place] : new_vtx(pts[place]));
        }
        trs.push_back(t);
    }
    put_into_tree(chain);
    list_free(&chain);
}

aabb mesh_fixture::model_box() const
{
    aabb box = k_no_box;
    for (const tr_h t : trs)
        if (rec(t).refs != 0)
            for (int i = 0; i < 3; ++i)
                box_add(&box, corner_pos(rec(t), i));
    box_widen(&box, 2.0 * static_cast<double>(merge_tol) * k_reader_margin);
    return box;
}

// In list order, which is the reverse of the order of reading.
void mesh_fixture::put_into_tree(const obj_list& reversed, std::uint32_t list_len)
{
    constexpr std::uint32_t k_level = 9; // of a tree whose leaves' length is given
    ctx.root = cell_tree_new(model_box(), list_len, k_level, 2 * reversed.count, &ctx);
    for (const obj_h o : reversed) {
        rec(o).box = box_of_tr(rec(rec(o).tr));
        box_widen(&rec(o).box, static_cast<double>(merge_tol) * k_reader_margin);
        tr_assign_id(o, false, &ctx);
        if (!tree_add(o, nullptr, &ctx)) give_up("no memory for the tree");
    }
}

void mesh_fixture::fill_tree(std::uint32_t list_len)
{
    obj_list chain = {};
    for (const tr_h t : trs)
        if (rec(t).refs != 0 && !list_push(&chain, rec(t).cell)) give_up("no memory for a list");
    cell_tree_free(&ctx);
    ctx.tr_count = ctx.longest_list = ctx.deepest_level = 0;
    put_into_tree(chain, list_len);
    list_free(&chain);
}

std::size_t mesh_fixture::index_of(const std::string& letters) const
{
    for (const bool any_order : {false, true})
        for (std::size_t i = 0; i < names.size(); ++i)
            if (any_order ? sorted_letters(names[i]) == sorted_letters(letters)
                          : names[i] == letters)
                return i;
    give_up("no triangle " + letters);
}

tr_h mesh_fixture::tr(const std::string& letters) const
{
    return trs[index_of(letters)];
}

tr_rec& mesh_fixture::at(const std::string& letters) const
{
    return rec(tr(letters));
}

obj_h mesh_fixture::obj(const std::string& letters) const
{
    return at(letters).cell;
}

vtx_h mesh_fixture::corner(const std::string& letters, char letter) const
{
    const std::size_t i = names[index_of(letters)].find(letter);
    if (i == std::string::npos) give_up(std::string("no corner ") + letter + " in " + letters);
    return at(letters).vtx[i];
}

vtx_h mesh_fixture::vtx(char letter) const
{
    for (std::size_t i = 0; i < names.size(); ++i)
        if (names[i].find(letter) != std::string::npos && rec(trs[i]).refs != 0)
            return rec(trs[i]).vtx[names[i].find(letter)];
    give_up(std::string("no triangle has the point ") + letter);
}

std::string mesh_fixture::name(tr_h t) const
{
    if (!t) return "-";
    if (rec(t).refs == 0) return "x";
    const auto place = std::find(trs.begin(), trs.end(), t);
    return place == trs.end() ? "?" : names[static_cast<std::size_t>(place - trs.begin())];
}

std::string mesh_fixture::nbrs(const std::string& letters) const
{
    const tr_rec& t = at(letters);
    return name(t.nbr[0]) + " " + name(t.nbr[1]) + " " + name(t.nbr[2]);
}

void mesh_fixture::link(const std::string& a, const std::string& b)
{
    for (int i = 0; i < 3; ++i) {
        const int j = tr_edge_index(at(a).vtx[i], at(a).vtx[next3(i)], at(b));
        if (j < 0) continue;
        at(a).nbr[i] = tr(b);
        at(b).nbr[j] = tr(a);
        return;
    }
    give_up("no common edge of " + a + " and " + b);
}

void mesh_fixture::link_all()
{
    for (std::size_t a = 0; a < trs.size(); ++a)
        for (int i = 0; i < 3; ++i)
            for (std::size_t b = a + 1; b < trs.size() && !rec(trs[a]).nbr[i]; ++b) {
                tr_rec& t = rec(trs[a]);
                const int j = tr_edge_index(t.vtx[i], t.vtx[next3(i)], rec(trs[b]));
                if (j < 0 || rec(trs[b]).nbr[j]) continue;
                t.nbr[i] = trs[b];
                rec(trs[b]).nbr[j] = trs[a];
            }
}

void mesh_fixture::move(char letter, float dx, float dy, float dz)
{
    const float by[3] = {dx, dy, dz};
    std::set<std::uint32_t> moved;
    for (std::size_t t = 0; t < trs.size(); ++t)
        for (std::size_t i = 0; i < 3; ++i) {
            const vtx_h v = rec(trs[t]).vtx[i];
            if (names[t][i] != letter || !moved.insert(v.i).second) continue;
            for (int k = 0; k < 3; ++k)
                rec(v).pos[k] += by[k];
        }
    fill_tree();
}

void mesh_fixture::set_merge_tol(float tol)
{
    merge_tol = tol;
    fill_tree();
}

std::uint32_t mesh_fixture::tr_count()
{
    return flag_count(0);
}

// Over the triangles in the tree.
template <class count_fn> static std::uint32_t sum_of(mesh_ctx* ctx, const count_fn& count)
{
    std::uint32_t sum = 0;
    for_each_obj_once(ctx, [&](obj_h, const cell_obj& obj) {
        sum += static_cast<std::uint32_t>(count(rec(obj.tr)));
        return true;
    });
    return sum;
}

std::uint32_t mesh_fixture::vtx_count()
{
    std::set<std::uint32_t> seen;
    sum_of(&ctx, [&](const tr_rec& tr) {
        for (const vtx_h v : tr.vtx)
            seen.insert(v.i);
        return 0;
    });
    return static_cast<std::uint32_t>(seen.size());
}

std::uint32_t mesh_fixture::flag_count(std::uint64_t flags)
{
    return sum_of(&ctx, [&](const tr_rec& tr) { return (tr.flags & flags) == flags; });
}

std::uint32_t mesh_fixture::link_count()
{
    return sum_of(&ctx, tr_nbr_count);
}

bool mesh_fixture::counts_are_exact(const std::vector<const obj_list*>& more_lists)
{
    std::vector<const obj_list*> lists = {&topo.edge_err_list, &topo.lone_list};
    lists.insert(lists.end(), more_lists.begin(), more_lists.end());
    return audit_counts(&ctx, lists.data(), static_cast<std::uint32_t>(lists.size()), stderr) == 0;
}

bool mesh_fixture::links_are_mutual()
{
    return audit_links(&ctx, stderr) == 0;
}

} // namespace velmora
