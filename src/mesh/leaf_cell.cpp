#include "mesh/leaf_cell.h"

#include "mesh/box.h"
#include "mesh/checked.h"
#include "mesh/folded_cells.h"
#include "mesh/leaf_survey.h"
#include "mesh/memory.h"

#include <cstring>

namespace velmora {

namespace {

// For each level below a folded cell, so many searches take as long as a survey.
constexpr std::uint32_t k_searches_each = bound_or(8, 1);

// The cells that hold a point, from a folded one down to the level limit.
struct way_down {
    std::uint32_t level; // of the folded one
    std::uint32_t steps;
    leaf_cell cells[k_deepest_level + 1];
    cell_half halves[k_deepest_level]; // each cell's half that the next one is
};

// The streams of these cells, run through together.
struct stream_counts {
    std::uint32_t counts[k_deepest_level + 1];
    std::uint32_t split; // so many cells from the first on have been seen to split
    std::uint32_t lived; // so many cells have been seen to hold an object
};

bool is_above_cut(const leaf_cell& cell, std::uint32_t level, const float* pt)
{
    const std::uint32_t axis = level % 3;
    return pt[axis] > cell_cut(cell.box.min[axis], cell.box.max[axis]);
}

// Down to a leaf that is known; else the whole way. True when there is one.
bool find_known(const float* pt, const leaf_map* map, way_down* way)
{
    const std::uint32_t deepest = the_fold.limits.max_level[the_fold.limits.steps];
    way->steps = 0;
    for (std::uint32_t level = way->level; level < deepest; ++level) {
        const leaf_cell& cell = way->cells[way->steps];
        const bool high = is_above_cut(cell, level, pt);
        const leaf_cell half = half_cell(cell, level, high);
        const std::uint32_t axis = level % 3;
        way->halves[way->steps] = {high, axis, (high ? half.box.min : half.box.max)[axis]};
        way->cells[++way->steps] = half;
        if (map && map->notes[half.path] == k_note_leaf) return true;
    }
    return false;
}

std::uint32_t cells_touched(const way_down& way, const aabb& box)
{
    std::uint32_t n = 0;
    while (n < way.steps && touches_half(way.halves[n], box))
        ++n;
    return n + 1;
}

// An object arrives at the first `touched` cells of the way. Each that is full by then, and allowed
// to, splits, once the one above it has: what came with that one's split makes none itself.
void arrive(const way_down& way, std::uint32_t step, std::uint32_t touched, stream_counts* s)
{
    const tree_limits& limits = the_fold.limits;
    while (s->split < touched && s->counts[s->split] >= limits.max_list[step] &&
           way.level + s->split < limits.max_level[step])
        ++s->split;
}

// How many cells of the way stand above the leaf: those that split, and hold anything.
std::uint32_t cells_above_leaf(const cell_node& node, const way_down& way)
{
    const tree_limits& limits = the_fold.limits;
    stream_counts s = {};
    std::uint32_t step = 0;
    for (std::uint32_t i = 0; i < node.list.count && (s.split < way.steps || s.lived < way.steps);
         ++i) {
        const obj_h entry = node.list.items[i];
        const std::uint32_t touched = cells_touched(way, the_fold.boxes[entry.i - 1]);
        if (touched > s.lived && folded_obj(entry)) s.lived = touched;
        while (step < limits.steps && limits.times[step] < entry.i - 1)
            ++step;
        if (i >= node.handed_down) arrive(way, step, touched, &s);
        for (std::uint32_t k = s.split; k < touched; ++k)
            ++s.counts[k];
    }
    return s.split < s.lived ? s.split : s.lived;
}

const aabb& box_at(const cell_node& node, std::uint32_t i)
{
    return the_fold.boxes[node.list.items[i].i - 1];
}

// box_overlap without a jump.
std::uint32_t touch(const aabb& a, const aabb& b)
{
    unsigned apart = 0;
    for (int i = 0; i < 3; ++i)
        apart |=
            static_cast<unsigned>(a.min[i] > b.max[i]) | static_cast<unsigned>(b.min[i] > a.max[i]);
    return 1 - apart;
}

bool holds_any(const cell_node& node, const aabb& cell)
{
    for (std::uint32_t i = node.list.count; i-- > 0;)
        if (folded_obj(node.list.items[i]) && touch(cell, box_at(node, i))) return true;
    return false;
}

// Whether the last cell above the level limit splits, as told by its last object: enough have come
// before. Most leaves that are folded are so full.
bool last_splits(const cell_node& node, const way_down& way)
{
    const tree_limits& limits = the_fold.limits;
    const aabb& cell = way.cells[way.steps - 1].box;
    std::uint32_t end = node.list.count;
    while (end > node.handed_down && !touch(cell, box_at(node, end - 1)))
        --end;
    if (end == node.handed_down) return false;
    const std::uint32_t last = end - 1;
    std::uint32_t step = 0;
    while (step < limits.steps && limits.times[step] < node.list.items[last].i - 1)
        ++step;
    if (way.level + way.steps - 1 >= limits.max_level[step]) return false;
    std::uint32_t before = 0;
    for (std::uint32_t i = last; i-- > 0 && before < limits.max_list[step];)
        before += touch(cell, box_at(node, i));
    return before >= limits.max_list[step] && holds_any(node, cell);
}

void note_search(const cell_node& node, const way_down& way, std::uint32_t found, leaf_map* map)
{
    map->notes[found] = k_note_leaf;
    std::uint8_t& searches = map->notes[way.cells[0].path];
    if (searches == k_note_inner || ++searches < k_searches_each * way.steps) return;
    survey_leaves(node, way.cells[0].path, map);
    searches = k_note_inner;
}

leaf_cell find_in_folded(const cell_node& node, std::uint32_t path, const float* pt, leaf_map* map)
{
    way_down way;
    way.level = node.level;
    way.cells[0] = {node.box, path};
    if (find_known(pt, map, &way)) return way.cells[way.steps];
    const bool is_last = last_splits(node, way);
    const leaf_cell& found = way.cells[is_last ? way.steps : cells_above_leaf(node, way)];
    if (map) note_search(node, way, found.path, map);
    return found;
}

} // namespace

bool leaf_map_open(std::uint32_t max_level, leaf_map* map)
{
    const std::uint32_t end = leaf_path_end(max_level);
    *map = {heap_array<std::uint8_t>(end), end};
    if (map->notes) std::memset(map->notes, 0, end);
    return map->notes != nullptr;
}

void leaf_map_close(leaf_map* map)
{
    heap_free(map->notes);
    *map = {};
}

bool find_leaf_cell(node_h root, const float* pt, leaf_map* map, leaf_cell* place)
{
    if (!pt_in_box(rec(root).box, pt)) return false;
    std::uint32_t path = 1;
    node_h n = root;
    while (rec(n).low) {
        const node_h low = rec(n).low;
        const bool high = !pt_in_box(rec(low).box, pt);
        n = high ? rec(n).high : low;
        path = 2 * path + (high ? 1u : 0u);
    }
    const cell_node& node = rec(n);
    *place = node.folded ? find_in_folded(node, path, pt, map) : leaf_cell{node.box, path};
    return true;
}

} // namespace velmora
