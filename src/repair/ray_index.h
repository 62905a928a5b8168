// repair/ray_index.h - which triangles a straight line can meet, of all in the tree.
//
// The leaves on a ray's way list whatever touches them; where many pieces stand close, that is
// nearly everything, for every ray anew. The index holds each triangle in a box that contains all
// points at which the test of a crossing can find it, rounding included, and the boxes in a binary
// tree. What the line misses is missed by the exact test as well, so leaving it out changes
// nothing. Corners may trade places while the index stands, but no vertex may move.
#pragma once

#include "mesh/box.h"
#include "mesh/cell_tree.h"
#include "mesh/records.h"
#include "repair/ray.h"

#include <cstdint>

namespace velmora {

/// A triangle in the index.
struct index_entry {
    tr_h tr;
    obj_h obj;
    float longest;  ///< of the edges; endless when only the box counts
    float nrm[3];   ///< unit, of no matter which side
    tr_plane plane; ///< for the exact test, which keeps it up to date; the corners always are
};

/// A box around entries that lie together, or around two nodes.
struct index_node {
    aabb box;
    std::uint32_t first; ///< an entry, or the first of the two nodes
    std::uint32_t count; ///< of entries; 0 above other nodes
};

/// Triangles of which the normal says clearly where they lie stand in one of the first trees: in
/// the very first what no ray can cross cleanly, so that most rays that tell nothing end there. The
/// others stand in those of the axes along which the test may look at them, 0 to 2.
constexpr std::uint32_t k_clear_trees = 2;
constexpr std::uint32_t k_index_trees = k_clear_trees + 3;
/// A tree of those that want a normal and may prove to have none. No line looks at it.
constexpr std::uint32_t k_suspects = k_index_trees;
constexpr std::uint32_t k_no_root = 0xFFFFFFFFu; ///< of a tree without entries

/// Boxes that are held against a line together.
constexpr std::uint32_t k_box_row = 16;

struct ray_index {
    index_entry* entries; ///< owned
    /// Where the entries can be met: faces of boxes, each with all entries and k_box_row more; the
    /// lower ones of each axis, then the upper. Endless along the axis that does not count. Owned.
    float* faces;
    std::uint32_t row; ///< from one face to the next
    index_node* nodes; ///< owned
    std::uint32_t node_count;
    std::uint32_t roots[k_index_trees + 1]; ///< a node or k_no_root; the last of the suspects
    double extent;                          ///< largest absolute coordinate
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
    float first[3]; ///< `from`, moved by the margin away from the face that comes first
    float last[3];
    float pace[3]; ///< shares per unit
    float way[3];
    float dir[3];    ///< unit vector
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
        const float first = line.forward[i] ? box.min[i] : box.max[i];
        const float last = line.forward[i] ? box.max[i] : box.min[i];
        const float in = (first - line.first[i]) * line.pace[i];
        const float out = (last - line.last[i]) * line.pace[i];
        enter = in > enter ? in : enter;
        leave = out < leave ? out : leave;
    }
    return enter <= leave;
}

/// The shares at which a line enters and leaves boxes; those that it misses it leaves before.
struct row_shares {
    float enter[k_box_row];
    float leave[k_box_row];
};

/// The same for the entries from `first` on.
inline void line_through_row(const index_line& line, const ray_index& index, std::uint32_t first,
                             row_shares* shares)
{
    for (std::uint32_t k = 0; k < k_box_row; ++k) {
        shares->enter[k] = 0.0f;
        shares->leave[k] = 1.0f;
    }
    for (std::uint32_t i = 0; i < 3; ++i) {
        const float* low = index.faces + std::size_t{i} * index.row + first;
        const float* high = index.faces + std::size_t{i + 3} * index.row + first;
        const float* ins = line.forward[i] ? low : high;
        const float* outs = line.forward[i] ? high : low;
        for (std::uint32_t k = 0; k < k_box_row; ++k) {
            const float in = (ins[k] - line.first[i]) * line.pace[i];
            const float out = (outs[k] - line.last[i]) * line.pace[i];
            shares->enter[k] = in > shares->enter[k] ? in : shares->enter[k];
            shares->leave[k] = out < shares->leave[k] ? out : shares->leave[k];
        }
    }
}

/// Whether the line, which enters the entry's box at that share, may come near its triangle.
bool line_nears_entry(const index_line& line, const index_entry& entry, float at);

/// Calls `visit(index_entry&)` for each entry that the segment can meet, some triangles more
/// than once, until it returns false.
template <class visit_fn>
void for_each_near_line(const ray_index& index, const index_line& line, const visit_fn& visit)
{
    for (std::uint32_t tree = 0; tree < k_index_trees; ++tree) {
        const std::uint32_t root = index.roots[tree];
        std::uint32_t stack[40]; // each level adds one, and halves its entries
        int depth = 0;
        if (root != k_no_root) stack[depth++] = root;
        while (depth != 0) {
            const index_node& node = index.nodes[stack[--depth]];
            if (!line_meets_box(line, node.box)) continue;
            if (node.count == 0) {
                stack[depth++] = node.first + 1;
                stack[depth++] = node.first;
                continue;
            }
            row_shares shares;
            line_through_row(line, index, node.first, &shares);
            index_entry* near[k_box_row];
            std::uint32_t count = 0;
            for (std::uint32_t k = 0; k < node.count; ++k) {
                index_entry& entry = index.entries[node.first + k];
                if (!(shares.enter[k] <= shares.leave[k]) ||
                    !line_nears_entry(line, entry, shares.enter[k]))
                    continue;
                near[count++] = &entry;
                __builtin_prefetch(&rec(entry.tr)); // the records lie anywhere
                __builtin_prefetch(&rec(entry.obj));
            }
            for (std::uint32_t k = 0; k < count; ++k)
                if (!visit(*near[k])) return;
        }
    }
}

/// Calls `visit(tr_h)` for each suspect whose object may touch the box.
template <class visit_fn>
void for_each_suspect_near(const ray_index& index, const aabb& box, const visit_fn& visit)
{
    std::uint32_t stack[40];
    int depth = 0;
    if (index.roots[k_suspects] != k_no_root) stack[depth++] = index.roots[k_suspects];
    while (depth != 0) {
        const index_node& node = index.nodes[stack[--depth]];
        if (!box_overlap(node.box, box)) continue;
        if (node.count == 0) {
            stack[depth++] = node.first + 1;
            stack[depth++] = node.first;
        }
        for (std::uint32_t k = 0; k < node.count; ++k)
            visit(index.entries[node.first + k].tr);
    }
}

} // namespace velmora
