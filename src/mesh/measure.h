// mesh/measure.h - what can be asked of one triangle: identity of corners, edges, heights, normals.
//
// Nothing here changes a link or a count; only tr_recompute_nrm writes, and only the normal and its
// marks. Edge i runs from corner i to corner (i + 1) % 3.
#pragma once

#include "mesh/records.h"

#include <cstdint>

namespace velmora {

/// Two of the three corners are the same record.
inline bool tr_collapsed(const tr_rec& tr)
{
    return tr.vtx[0] == tr.vtx[1] || tr.vtx[1] == tr.vtx[2] || tr.vtx[2] == tr.vtx[0];
}

/// Two of the three corners are equal within merge_tol.
bool tr_has_equal_corners(const tr_rec& tr);

/// Both have the same three records as corners, in any order and either winding.
bool tr_same_vertices(const tr_rec& a, const tr_rec& b);

/// The corner that holds `v`, or -1.
inline int tr_vtx_index(vtx_h v, const tr_rec& tr)
{
    for (int i = 0; i < 3; ++i)
        if (tr.vtx[i] == v) return i;
    return -1;
}

/// The first edge with the ends `a` and `b`, in either order, or -1.
int tr_edge_index(vtx_h a, vtx_h b, const tr_rec& tr);

/// The slot of `tr` that holds `nbr`, or -1; -1 for no neighbour.
int tr_nbr_index(tr_h nbr, const tr_rec& tr);

/// Number of neighbours, 0 to 3.
int tr_nbr_count(const tr_rec& tr);

/// Vector along edge `i`, from corner i to the next.
void edge_vec(const tr_rec& tr, int i, float* out);

/// Length of edge `i`.
double edge_len(const tr_rec& tr, int i);

double tr_area(const tr_rec& tr);

/// Cosine of the angle at corner `i`: NaN where an edge has no length.
double corner_cos(const tr_rec& tr, int i);

/// The sharpest corner.
struct max_cos_result {
    bool above; ///< some corner's cosine is above the limit
    double cos; ///< largest cosine, from -1 up
    int corner; ///< its corner, the first of equals
};

/// No two vertices are so near to each other that the squares of their distances sink below what a
/// float holds: then no cosine in the mesh is beyond 1 by more than rounding. May be false without
/// need.
bool vtxs_are_apart();

/// Cosines of all corners against `limit`.
max_cos_result tr_max_cos(const tr_rec& tr, double limit);

/// Unit normal from corner 0 with components near zero made zero; false when an edge or the
/// normal has no direction, and `out` is then unspecified.
bool tr_clean_normal(const tr_rec& tr, float* out);

/// The perpendicular from the widest corner onto the edge opposite.
struct height_result {
    bool ok;       ///< the height exceeds merge_tol
    int corner;    ///< widest corner, a later one winning ties; -1 when two corners are equal
    double cos;    ///< its cosine
    double height; ///< length of vec
    float vec[3];  ///< from the corner to the foot
};

height_result tr_height(const tr_rec& tr);

/// Whether some corner is neither sharp nor flat.
bool tr_has_open_corner(const tr_rec& tr);

/// Gives `tr` its normal, from the first corner that is neither sharp nor flat, else from its
/// height; when neither serves it is degenerate: no_nrm set, normal zero. Sets nrm_done always.
/// @param compute  false: only sets nrm_done
/// @param counter  raised when the triangle has its normal; may be null
/// @return whether it has one
bool tr_recompute_nrm(tr_rec* tr, bool compute, std::uint32_t* counter);

/// Distance of `p` from the segment `a` to `b`.
double pt_seg_dist(const float* a, const float* b, const float* p);

/// Signed distance of `p` from the triangle's plane, by its stored normal; from a corner that is
/// equal to `p`, the plain distance; from a degenerate triangle, that from its nearest edge.
double pt_tr_dist(const tr_rec& tr, const float* p);

} // namespace velmora
