#include "mesh/leaf_cell.h"

#include "mesh/box.h"
#include "mesh/folded_cells.h"
#include "mesh/late_entries.h"
#include "mesh/leaf_survey.h"
#include "mesh/memory.h"

#include <cstring>

namespace velmora {

namespace {

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

// What has come late to these cells.
struct late_counts {
    std::uint32_t most[k_deepest_level + 1]; // entries that lists can have had since then
    std::uint32_t came;                      // to so many cells from the first on
    std::uint32_t lived;                     // so many of them hold one of these
};

std::uint32_t deepest_level()
{
    return the_fold.limits.max_level[the_fold.limits.steps];
}

bool is_above_cut(const leaf_cell& cell, std::uint32_t level, const float* pt)
{
    const std::uint32_t axis = level % 3;
    return pt[axis] > cell_cut(cell.box.min[axis], cell.box.max[axis]);
}

// Down to a leaf that is known; else the whole way. True when there is one.
bool find_known(const float* pt, const leaf_map* map, way_down* way)
{
    way->steps = 0;
    for (std::uint32_t level = way->level; level < deepest_level(); ++level) {
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

// The first entries, of which nothing had left yet while they came.
stream_counts count_early(const cell_node& node, std::uint32_t early, const way_down& way)
{
    const tree_limits& limits = the_fold.limits;
    stream_counts s = {};
    std::uint32_t step = 0;
    for (std::uint32_t i = 0; i < early && (s.split < way.steps || s.lived < way.steps); ++i) {
        const obj_h entry = node.list.items[i];
        const std::uint32_t touched = cells_touched(way, the_fold.boxes[entry.i - 1]);
        if (touched > s.lived && folded_obj(entry)) s.lived = touched;
        step = steps_before(entry.i - 1, limits, step);
        if (i >= node.handed_down) arrive(way, step, touched, &s);
        for (std::uint32_t k = s.split; k < touched; ++k)
            ++s.counts[k];
    }
    return s;
}

late_counts count_late(const cell_node& node, std::uint32_t early, const way_down& way)
{
    late_counts l = {};
    for (std::uint32_t i = 0; i < node.list.count; ++i) {
        const obj_h entry = node.list.items[i];
        if (!is_there_at(entry, the_fold.filled)) continue;
        const std::uint32_t touched = cells_touched(way, the_fold.boxes[entry.i - 1]);
        for (std::uint32_t k = 0; k < touched; ++k)
            ++l.most[k];
        if (i < early) continue;
        if (touched > l.came) l.came = touched;
        if (touched > l.lived && folded_obj(entry)) l.lived = touched;
    }
    return l;
}

// A cell that had split stays so while it holds an early object. One that has lost all of these, or
// had not split, may have been split since by what has come late.
bool is_unsure(const cell_node& node, std::uint32_t early, const way_down& way,
               const stream_counts& s, std::uint32_t found)
{
    if (early == node.list.count) return false;
    const late_counts l = count_late(node, early, way);
    if (found < s.split) return found < l.lived;
    return found < l.came && way.level + found < deepest_level() &&
           l.most[found] > least_late_split();
}

// How many cells of the way stand above the leaf: those that split, and hold anything. False when
// late entries leave that open.
bool cells_above_leaf(const cell_node& node, std::uint32_t early, const way_down& way,
                      std::uint32_t* found)
{
    const stream_counts s = count_early(node, early, way);
    *found = s.split < s.lived ? s.split : s.lived;
    return !is_unsure(node, early, way, s, *found);
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

template <class comes_fn>
bool holds_any(const cell_node& node, std::uint32_t early, const comes_fn& comes)
{
    for (std::uint32_t i = early; i-- > 0;)
        if (folded_obj(node.list.items[i]) && comes(box_at(node, i))) return true;
    return false;
}

// Whether the last cell above the level limit splits, as told by the last object that came early of
// those whose boxes `comes` says come to it: enough of them have come before.
template <class comes_fn>
bool last_splits(const cell_node& node, std::uint32_t early, const comes_fn& comes)
{
    const tree_limits& limits = the_fold.limits;
    std::uint32_t end = early;
    while (end > node.handed_down && !comes(box_at(node, end - 1)))
        --end;
    if (end <= node.handed_down) return false;
    const std::uint32_t last = end - 1;
    const std::uint32_t step = steps_before(node.list.items[last].i - 1, limits);
    if (deepest_level() - 1 >= limits.max_level[step]) return false;
    std::uint32_t before = 0;
    for (std::uint32_t i = last; i-- > 0 && before < limits.max_list[step];)
        before += comes(box_at(node, i));
    return before >= limits.max_list[step] && holds_any(node, early, comes);
}

// Most leaves that are folded are so full.
bool last_of_way_splits(const cell_node& node, std::uint32_t early, const way_down& way)
{
    const aabb& cell = way.cells[way.steps - 1].box;
    return last_splits(node, early, [&cell](const aabb& box) { return touch(cell, box); });
}

std::uint32_t covers(const aabb& box, const aabb& cell)
{
    unsigned open = 0;
    for (int i = 0; i < 3; ++i)
        open |= static_cast<unsigned>(box.min[i] > cell.min[i]) |
                static_cast<unsigned>(cell.max[i] > box.max[i]);
    return 1 - open;
}

// Where boxes are large, enough come to all cells below. Asked once, by the first search.
bool is_full(const cell_node& node, std::uint32_t early, std::uint8_t* note)
{
    const auto comes = [&node](const aabb& box) { return covers(box, node.box); };
    if (*note == 0 && last_splits(node, early, comes)) *note = k_note_full;
    return *note == k_note_full;
}

// A search for each level below the folded cell takes as long as a survey, or longer. Where the
// survey of a cell above has left it unsure, one is due at once.
void note_search(const cell_node& node, const way_down& way, std::uint32_t found, leaf_map* map)
{
    map->notes[found] = k_note_leaf;
    std::uint8_t& searches = map->notes[way.cells[0].path];
    if (searches == k_note_inner || ++searches < way.steps) return;
    survey_leaves(node, way.cells[0].path, map);
    searches = k_note_inner;
}

// False when late entries leave it open.
bool find_in_folded(const cell_node& node, std::uint32_t path, const float* pt, leaf_map* map,
                    leaf_cell* place)
{
    way_down way;
    way.level = node.level;
    way.cells[0] = {node.box, path};
    const bool known = find_known(pt, map, &way);
    const std::uint32_t early = known ? 0 : early_count(head_of(node), node.list.items);
    std::uint32_t found = way.steps;
    if (!known && !(map && is_full(node, early, &map->notes[path]))) {
        if (!last_of_way_splits(node, early, way) && !cells_above_leaf(node, early, way, &found))
            return false;
        if (map) note_search(node, way, way.cells[found].path, map);
    }
    *place = way.cells[found];
    return true;
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
    for (;;) {
        const cell_node& node = rec(n);
        if (is_leaf(node)) break;
        if (node.folded) {
            if (find_in_folded(node, path, pt, map, place)) return true;
            if (!cell_unfold(n)) return false;
        }
        const bool high = !pt_in_box(rec(node.low).box, pt);
        n = high ? node.high : node.low;
        path = 2 * path + (high ? 1u : 0u);
    }
    *place = {rec(n).box, path};
    return true;
}

} // namespace velmora
