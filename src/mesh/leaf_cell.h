// mesh/leaf_cell.h - where the leaves are, mostly without unfolding cells for it.
#pragma once

#include "mesh/cell_tree.h"

#include <cstdint>

namespace velmora {

/// A leaf of the tree, one that stands or one that is folded away.
struct leaf_cell {
    aabb box;
    std::uint32_t path; ///< 1 for the root; each level adds a bit at the end, 1 for the upper half
};

/// No path of a tree with that level limit reaches this.
constexpr std::uint32_t leaf_path_end(std::uint32_t max_level)
{
    return 2u << max_level;
}

/// The child of a cell that cell_find_leaf goes to.
inline leaf_cell half_cell(const leaf_cell& cell, std::uint32_t level, bool high)
{
    leaf_cell half = {cell.box, 2 * cell.path + (high ? 1u : 0u)};
    const std::uint32_t axis = level % 3;
    const float cut = cell_cut(cell.box.min[axis], cell.box.max[axis]);
    (high ? half.box.min : half.box.max)[axis] = cut;
    return half;
}

/// Notes of a leaf_map. Under the path of a folded cell it counts, below these, how often leaves
/// have been searched for.
constexpr std::uint8_t k_note_full = 252;   ///< a folded cell all of whose leaves are at the limit
constexpr std::uint8_t k_note_unsure = 253; ///< a cell that may have been split since
constexpr std::uint8_t k_note_inner = 254;  ///< all leaves below are noted, if there was memory
constexpr std::uint8_t k_note_leaf = 255;

/// What searches have found out about the leaves of a tree, which must not change meanwhile but by
/// unfolding. It spares them looking through the streams of folded cells again.
struct leaf_map {
    std::uint8_t* notes; ///< by path; owned
    std::uint32_t end;
};

/// An empty map of a tree with that level limit.
/// @return false when memory ran out; nothing is held then
[[nodiscard]] bool leaf_map_open(std::uint32_t max_level, leaf_map* map);

void leaf_map_close(leaf_map* map);

/// The leaf that cell_find_leaf would find. Unfolds only where late entries leave it open.
/// @param map  none: nothing is known yet
/// @return false outside of the tree, and when memory ran out, see tree_is_torn
bool find_leaf_cell(node_h root, const float* pt, leaf_map* map, leaf_cell* place);

} // namespace velmora
