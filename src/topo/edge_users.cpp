#include "topo/edge_users.h"

#include "mesh/box.h"
#include "mesh/memory.h"
#include "mesh/tree_fill.h"

#include <algorithm>

namespace velmora {

namespace {

void add_user(obj_h o, edge_users* users)
{
    users->objs[users->count++] = o;
}

bool has_user(const edge_users& users, obj_h o)
{
    return std::find(users.objs, users.objs + users.count, o) != users.objs + users.count;
}

// Without memory the lookup has no places, and each list is read.
bool note_places(const cell_node& leaf, user_lookup* lookup)
{
    if (lookup->leaf == leaf.serial) return true;
    if (!lookup->places) lookup->places = heap_array<std::uint32_t>(obj_pool.used);
    if (!lookup->places) return false;
    for (std::uint32_t place = 0; place < leaf.list.count; ++place)
        lookup->places[list_at(leaf.list, place).i] = place;
    lookup->leaf = leaf.serial;
    return true;
}

// Puts users that the leaf lists in the order of its list.
void put_in_list_order(const cell_node& leaf, user_lookup* lookup, edge_users* users)
{
    if (note_places(leaf, lookup)) {
        std::sort(users->objs, users->objs + users->count,
                  [&](obj_h x, obj_h y) { return lookup->places[x.i] < lookup->places[y.i]; });
        return;
    }
    const edge_users unordered = *users;
    users->count = 0;
    for (const obj_h o : leaf.list)
        if (has_user(unordered, o)) add_user(o, users);
}

// A walk that is under way.
struct user_walk {
    const edge_users& users;
    const aabb& box;
    user_lookup* lookup;
    edge_users* met;
};

// The users that the walk will meet at or below a node. Three boxes of which any two touch have a
// point in common, so there is a leaf that touches the walk's box and lists the user.
edge_users users_ahead(const user_walk& walk, const aabb& node_box)
{
    edge_users ahead;
    ahead.count = 0;
    for (std::uint32_t i = 0; i < walk.users.count; ++i) {
        const obj_h o = walk.users.objs[i];
        const aabb& box = rec(o).box;
        if (box_overlap(box, node_box) && box_overlap(box, walk.box) && !has_user(*walk.met, o))
            add_user(o, &ahead);
    }
    return ahead;
}

// Where only one is left, it is the next, whatever leaf it is met in.
bool walk_below(node_h n, const user_walk& walk)
{
    const cell_node& node = rec(n);
    if (!box_overlap(node.box, walk.box)) return true;
    edge_users ahead = users_ahead(walk, node.box);
    if (ahead.count > 1 && !is_leaf(node)) {
        if (node.folded && !cell_unfold(n)) return false;
        return walk_below(node.low, walk) && walk_below(node.high, walk);
    }
    if (ahead.count > 1) put_in_list_order(node, walk.lookup, &ahead);
    for (std::uint32_t i = 0; i < ahead.count; ++i)
        add_user(ahead.objs[i], walk.met);
    return true;
}

} // namespace

user_lookup user_lookup_open(const edge_groups& sides, const mesh_ctx& ctx)
{
    const bool knows = groups_can_be_found(sides) && tree_can_be_filled(ctx);
    return {knows ? &sides : nullptr, 0, nullptr};
}

void user_lookup_close(user_lookup* lookup)
{
    heap_free(lookup->places);
    *lookup = {};
}

bool find_users(const user_lookup& lookup, vtx_h a, vtx_h b, edge_users* users)
{
    users->count = 0;
    if (!lookup.sides) return false;
    const edge_group group = find_edge_group(*lookup.sides, a, b);
    if (group.count > k_most_users) return false;
    for (std::uint32_t i = 0; i < group.count; ++i) {
        const obj_h o = rec(side_tr(group.first[i])).cell;
        if (!box_holds_something(rec(o).box)) return false;
        add_user(o, users);
    }
    return true;
}

void users_in_leaf(const edge_users& users, const cell_node& leaf, user_lookup* lookup,
                   edge_users* listed)
{
    listed->count = 0;
    for (std::uint32_t i = 0; i < users.count; ++i)
        if (box_overlap(leaf.box, rec(users.objs[i]).box)) add_user(users.objs[i], listed);
    if (listed->count > 1) put_in_list_order(leaf, lookup, listed);
}

bool users_on_walk(const edge_users& users, const aabb& box, const mesh_ctx& ctx,
                   user_lookup* lookup, edge_users* met)
{
    met->count = 0;
    return walk_below(ctx.root, {users, box, lookup, met});
}

} // namespace velmora
