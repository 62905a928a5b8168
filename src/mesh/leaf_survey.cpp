#include "mesh/leaf_survey.h"

#include "mesh/cell_grid.h"
#include "mesh/folded_cells.h"
#include "mesh/late_entries.h"
#include "mesh/memory.h"

#include <cstring>
#include <initializer_list>

namespace velmora {

namespace {

// Beside the count of a cell.
constexpr std::uint32_t k_splits = 1u << 31;
constexpr std::uint32_t k_unsure = 1u << 30; // late entries leave it open

// A folded cell's stream on the grids of the levels below.
struct stream_survey {
    const cell_node* node;
    std::uint32_t path;
    std::uint32_t early;  // entries that came while the tree was filled
    std::uint32_t finest; // level above the limit
    cell_block* blocks;   // of each entry, on the grid of that level; owned
    bool all_live;
    leaf_map* map;
};

// One level: how many entries touch each cell.
struct level_survey {
    std::uint32_t level;
    std::uint32_t shifts[3]; // from the finest grid to this one
    cell_grid fresh;         // of some entries
    cell_grid total;         // of all up to them, and k_splits
};

obj_h entry_at(const stream_survey& s, std::uint32_t i)
{
    return s.node->list.items[i];
}

bool note_blocks(stream_survey* s)
{
    const cell_node& node = *s->node;
    cell_grid grid;
    if (!cell_grid_open(node.box, node.level, s->finest - node.level, &grid)) return false;
    s->all_live = true;
    for (std::uint32_t i = 0; i < node.list.count; ++i) {
        s->blocks[i] = cells_of(grid, the_fold.boxes[entry_at(*s, i).i - 1]);
        if (i < s->early && !folded_obj(entry_at(*s, i))) s->all_live = false;
    }
    cell_grid_close(&grid);
    return true;
}

bool level_open(const stream_survey& s, std::uint32_t level, level_survey* l)
{
    const cell_node& node = *s.node;
    *l = {level, {}, {}, {}};
    for (std::uint32_t below = level; below < s.finest; ++below)
        ++l->shifts[below % 3];
    if (!cell_grid_open(node.box, node.level, level - node.level, &l->fresh)) return false;
    if (cell_grid_open(node.box, node.level, level - node.level, &l->total)) return true;
    cell_grid_close(&l->fresh);
    return false;
}

void level_close(level_survey* l)
{
    cell_grid_close(&l->fresh);
    cell_grid_close(&l->total);
}

cell_range coarser(const cell_range& fine, std::uint32_t shift)
{
    return {fine.first >> shift, fine.last >> shift};
}

// A box touches a cell when it touches a part of it.
cell_block block_on(const level_survey& l, const cell_block& fine)
{
    return {coarser(fine.x, l.shifts[0]), coarser(fine.y, l.shifts[1]),
            coarser(fine.z, l.shifts[2])};
}

template <class chosen_fn>
void count_entries(const stream_survey& s, std::uint32_t first, std::uint32_t end,
                   const chosen_fn& is_chosen, const level_survey& l)
{
    std::memset(l.fresh.counts, 0, sizeof(std::uint32_t) * cell_count(l.fresh));
    for (std::uint32_t i = first; i < end; ++i)
        if (is_chosen(entry_at(s, i))) note_block(block_on(l, s.blocks[i]), l.fresh);
    sum_up_blocks(l.fresh);
}

// The end of the entries that came under the same limits as the first.
std::uint32_t end_of_step(const stream_survey& s, std::uint32_t first, std::uint32_t* step)
{
    const tree_limits& limits = the_fold.limits;
    *step = steps_before(entry_at(s, first).i - 1, limits, *step);
    if (*step == limits.steps) return s.early;
    while (first < s.early && !(limits.times[*step] < entry_at(s, first).i - 1))
        ++first;
    return first;
}

// A cell splits when an entry finds it full that came by itself. Of those under the same limits the
// last finds most before it.
void add_counts(std::uint32_t longest, bool may_split, const level_survey& l)
{
    const std::uint32_t cells = cell_count(l.total);
    for (std::uint32_t c = 0; c < cells; ++c) {
        l.total.counts[c] += l.fresh.counts[c];
        const bool full = (l.total.counts[c] & ~k_splits) > longest;
        if (may_split && full && l.fresh.counts[c] != 0) l.total.counts[c] |= k_splits;
    }
}

void find_splits(const stream_survey& s, const level_survey& l)
{
    const tree_limits& limits = the_fold.limits;
    const auto any = [](obj_h) { return true; };
    std::uint32_t step = 0;
    std::uint32_t end = s.node->handed_down;
    count_entries(s, 0, end, any, l);
    add_counts(0, false, l);
    for (std::uint32_t first = end; first < s.early; first = end) {
        end = end_of_step(s, first, &step);
        count_entries(s, first, end, any, l);
        add_counts(limits.max_list[step], l.level < limits.max_level[step], l);
    }
}

bool has_late(const stream_survey& s)
{
    return s.early < s.node->list.count;
}

// What has no object left is an empty leaf, whether it has been split or not. Where it had been
// split, late ones may have come before it was empty, or after.
void forget_empty_cells(const stream_survey& s, const level_survey& l)
{
    if (s.all_live) return;
    const auto lives = [](obj_h entry) { return bool{folded_obj(entry)}; };
    count_entries(s, 0, s.early, lives, l);
    const std::uint32_t flags = has_late(s) ? k_splits : 0;
    for (std::uint32_t c = 0; c < cell_count(l.total); ++c)
        if (l.fresh.counts[c] == 0) l.total.counts[c] = l.total.counts[c] & flags ? k_unsure : 0;
}

// Cells that late entries may have split.
void find_unsure(const stream_survey& s, const level_survey& l)
{
    if (!has_late(s)) return;
    const auto was_there = [](obj_h entry) { return is_there_at(entry, the_fold.filled); };
    const std::uint32_t cells = cell_count(l.total);
    count_entries(s, 0, s.node->list.count, was_there, l);
    for (std::uint32_t c = 0; c < cells; ++c)
        if (l.fresh.counts[c] > least_late_split()) l.total.counts[c] |= k_unsure;
}

std::uint32_t path_of(const stream_survey& s, std::uint32_t level, const std::uint32_t* at)
{
    std::uint32_t bits[3] = {};
    for (std::uint32_t l = s.node->level; l < level; ++l)
        ++bits[l % 3];
    std::uint32_t path = s.path;
    for (std::uint32_t l = s.node->level; l < level; ++l)
        path = 2 * path + (at[l % 3] >> --bits[l % 3] & 1);
    return path;
}

// A leaf is half of a cell that splits, and does not split itself.
void note_halves(std::uint32_t path, std::uint8_t* notes)
{
    for (const std::uint32_t half : {2 * path, 2 * path + 1})
        if (notes[half] < k_note_unsure) notes[half] = k_note_leaf;
}

void note_cells(const stream_survey& s, const level_survey& l)
{
    const grid_axis* const axes = l.total.axes;
    std::uint8_t* const notes = s.map->notes;
    std::uint32_t at[3];
    for (at[2] = 0; at[2] < axes[2].count; ++at[2])
        for (at[1] = 0; at[1] < axes[1].count; ++at[1])
            for (at[0] = 0; at[0] < axes[0].count; ++at[0]) {
                const std::uint32_t count = l.total.counts[cell_at(l.total, at[0], at[1], at[2])];
                if (!(count & (k_splits | k_unsure))) continue;
                const std::uint32_t path = path_of(s, l.level, at);
                notes[path] = count & k_splits ? k_note_inner : k_note_unsure;
                if (count & k_splits) note_halves(path, notes);
            }
}

// A cell with a half that splits and holds something does so itself. True when all cells of the
// level have one.
bool note_by_halves(const stream_survey& s, std::uint32_t level)
{
    std::uint8_t* const notes = s.map->notes;
    const std::uint32_t depth = level - s.node->level;
    bool all = true;
    for (std::uint32_t path = s.path << depth; path < (s.path + 1) << depth; ++path) {
        const bool splits = notes[2 * std::size_t{path}] == k_note_inner ||
                            notes[2 * std::size_t{path} + 1] == k_note_inner;
        if (splits) notes[path] = k_note_inner;
        if (splits) note_halves(path, notes);
        all = all && splits;
    }
    return all;
}

// From the deepest level up, so that what is noted holds at any time.
void survey_levels(const stream_survey& s)
{
    for (std::uint32_t level = s.finest + 1; level-- > s.node->level;) {
        if (note_by_halves(s, level)) continue;
        level_survey l;
        if (!level_open(s, level, &l)) return;
        find_splits(s, l);
        forget_empty_cells(s, l);
        find_unsure(s, l);
        note_cells(s, l);
        level_close(&l);
    }
}

} // namespace

void survey_leaves(const cell_node& node, std::uint32_t path, leaf_map* map)
{
    const std::uint32_t deepest = the_fold.limits.max_level[the_fold.limits.steps];
    auto* const blocks = heap_array<cell_block>(node.list.count);
    stream_survey s = {
        &node, path, early_count(head_of(node), node.list.items), deepest - 1, blocks, true, map};
    if (blocks && note_blocks(&s)) survey_levels(s);
    heap_free(blocks);
}

} // namespace velmora
