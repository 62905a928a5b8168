// repair/ray_index.h - which triangles a straight line can meet, of all in the tree.
//
// The leaves on a ray's way list whatever touches them; where many pieces stand close, that is
// nearly everything, for every ray anew. The index holds each triangle in a box that contains all
// points at which the test of a crossing can find it, rounding included, and the boxes in a binary
// tree. What the line misses is missed by the exact test as well, so leaving it out changes
// nothing. Corners may trade places while the index stands, but no vertex may move.
#pragma once

#include "mesh/cell_tree.h"
#include "mesh/records.h"
#include "repair/ray.h"

#include <cstdint>

namespace velmora {

/// A triangle and where it can be met.
struct index_entry {
    aabb box; ///< endless along the axis that does not count
    tr_h tr;
    tr_plane plane;
};

/// A box around entries that lie together, or around two nodes.
struct index_node {
    aabb box;
    std::uint32_t first; ///< an entry, or the first of the two nodes
    std::uint32_t count; ///< of entries; 0 above other nodes
};

/// Triangles of which the normal says clearly where they lie stand in the first tree, once. The
/// others stand in those of the axes along which the test may look at them, 0 to 2.
constexpr int k_index_trees = 4;
constexpr std::uint32_t k_no_root = 0xFFFFFFFFu; ///< of a tree without entries

struct ray_index {
    index_entry* entries; ///< owned
    index_node* nodes;    ///< owned
    std::uint32_t entry_count;
    std::uint32_t node_count;
    std::uint32_t roots[k_index_trees]; ///< a node or k_no_root
    double extent;                      ///< largest absolute coordinate
};

/// Fills `index`, which is all zero, with the triangles of all objects in the tree.
/// @return false when coordinates leave the range that the argument covers or memory ran out;
///         nothing is held then, and rays must look through the leaves
[[nodiscard]] bool ray_index_build(ray_index* index);

/// Gives the memory back.
void ray_index_free(ray_index* index);

/// A segment against boxes, in shares of its length. Along an axis on which it hardly moves a box
/// is entered and left far beyond its ends, or is missed.
struct index_line {
    float from[3];
    float pace[3];   ///< shares per unit
    float margin;    ///< by which all boxes are wider
    bool forward[3]; ///< the lower face of a box comes first
};

/// The segment for an index; false when it leaves the range that the index's boxes are made for.
/// @param stray  how far the segments that it stands for may lie beside it
bool index_line_between(const float* from, const float* to, double stray, const ray_index& index,
                        index_line* line);

/// Whether the segment touches the box, widened by the margin.
inline bool line_meets_box(const index_line& line, const aabb& box)
{
    float enter = 0.0f;
    float leave = 1.0f;
    for (int i = 0; i < 3; ++i) {
        const float low = box.min[i] - line.margin - line.from[i];
        const float high = box.max[i] + line.margin - line.from[i];
        const float first = (line.forward[i] ? low : high) * line.pace[i];
        const float last = (line.forward[i] ? high : low) * line.pace[i];
        enter = first > enter ? first : enter;
        leave = last < leave ? last : leave;
    }
    return enter <= leave;
}

/// Calls `visit(index_entry&)` for each entry that the segment can meet, some triangles more than
/// once, until it returns false.
template <class visit_fn>
void for_each_near_line(const ray_index& index, const index_line& line, const visit_fn& visit)
{
    for (const std::uint32_t root : index.roots) {
        std::uint32_t stack[40]; // each level adds one, and halves its entries
        int depth = 0;
        if (root != k_no_root) stack[depth++] = root;
        while (depth != 0) {
            const index_node& node = index.nodes[stack[--depth]];
            if (!line_meets_box(line, node.box)) continue;
            if (node.count == 0) {
                stack[depth++] = node.first + 1;
                stack[depth++] = node.first;
            }
            for (std::uint32_t i = node.first; i < node.first + node.count; ++i) {
                index_entry& entry = index.entries[i];
                if (line_meets_box(line, entry.box) && !visit(entry)) return;
            }
        }
    }
}

} // namespace velmora
