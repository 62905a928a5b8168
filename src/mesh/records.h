// mesh/records.h - the records that all stages share, and the counts that keep them alive.
//
// Ownership runs one way, each arrow counted:  obj_list -> cell_obj -> tr_rec -> vtx_rec.
// Every other handle is a link: it keeps nothing alive. Positions and normals are float, in the
// units of the input file.
//
// Life and death. A record dies when its last holder lets go, and takes its share of what it holds
// with it. The slot of a triangle or object that was once part of the mesh is not given out again
// within a run, so a link that outlived its triangle still finds a dead record there (refs 0) and
// never a stranger; live_nbr() reads such a link as none. Vertex slots are given out again, so
// nobody but their counted holders may keep one.
//
// Part of what a triangle carries is never touched by the walks (tr_cold); it lies elsewhere and
// exists only for models that bring it along.
#pragma once

#include "mesh/pool.h"

#include <cstdint>

namespace velmora {

struct tr_rec;
struct vtx_rec;
struct cell_obj;
struct cell_node;
struct mesh_ctx;

using tr_h = handle<tr_rec>;
using vtx_h = handle<vtx_rec>;
using obj_h = handle<cell_obj>;
using node_h = handle<cell_node>;

/// Axis-parallel box, closed on all sides.
struct aabb {
    float min[3];
    float max[3];
};

/// One point of the mesh, shared by every corner that was merged onto it.
struct vtx_rec {
    float pos[3];
    std::uint32_t tbl_index; ///< one-based place in the vertex table, 0 none
    std::uint32_t holders;   ///< true number of holders: the record lives until it is 0
    std::uint16_t refs;      ///< the count that decisions read; 16 bits that wrap, and untouched
                             ///< where a corner is overwritten instead of handed over
};

/// Bits of tr_rec::flags. They go into native model files: add bits, never renumber them.
enum tr_flag : std::uint64_t {
    tr_nrm_done = 1ull << 0, ///< given its normal in this cycle; the spread has reached it
    tr_loaded = 1ull << 1,   ///< made by a reader
    tr_mark_5 = 1ull << 5,   ///< carried only
    tr_mark_6 = 1ull << 6,   ///< carried only
    tr_no_nrm = 1ull << 9,   ///< degenerate: no normal exists and nrm is zero
    tr_dup = 1ull << 15,     ///< same three vertices as another triangle
    tr_prob_17 = 1ull << 17, ///< problem marks that a model file may bring
    tr_prob_19 = 1ull << 19,
    tr_prob_21 = 1ull << 21,
    tr_prob_23 = 1ull << 23,
    tr_prob_25 = 1ull << 25,
    tr_edge_err = 1ull << 27,       ///< one of its edges has more than two users
    tr_edge_err2 = 1ull << 29,      ///< set and cleared with tr_edge_err
    tr_prob_31 = 1ull << 31,        ///< part of a boundary polygon
    tr_on_boundary = 1ull << 32,    ///< set with tr_prob_31
    tr_prob_33 = 1ull << 33,        ///< cleared at the head of each cycle
    tr_mark_35 = 1ull << 35,        ///< carried only
    tr_orient_seen = 1ull << 41,    ///< asks the per-cycle reset for a fresh normal
    tr_winding_turned = 1ull << 49, ///< its corners were swapped an odd number of times
    tr_may_merge = 1ull << 51,      ///< weld_some: it has corners for the merge, which clears this

    tr_any_problem = tr_dup | tr_prob_17 | tr_prob_19 | tr_prob_21 | tr_prob_23 | tr_prob_25 |
                     tr_edge_err | tr_edge_err2 | tr_prob_31 | tr_prob_33,
};

/// One triangle. Edge i runs from vtx[i] to vtx[(i + 1) % 3], and nbr[i] lies across it.
/// One cache line.
struct tr_rec {
    std::uint64_t flags;       ///< tr_flag bits
    vtx_h vtx[3];              ///< corners; their order is the winding; counted
    tr_h nbr[3];               ///< neighbours or none; not counted; read through live_nbr()
    float nrm[3];              ///< unit normal, zero when tr_no_nrm is set
    std::uint32_t refs;        ///< holders; 0 dead (or not yet held)
    std::uint32_t walk_mark;   ///< stamp of the last ray that met it
    obj_h cell;                ///< its object, none once that is dead or out; not counted
    std::uint32_t id;          ///< identity for model files, 0 none yet
    std::int16_t plane_class;  ///< 0, or the axis its normal lies on: 100, 101, 200 ... 301
    std::uint8_t branch_edges; ///< bit i: three or more triangles share edge i
    std::uint8_t ray_nrm;      ///< 1: its normal has been computed for a ray of this orientation
};
static_assert(sizeof(tr_rec) == 64, "a triangle is one cache line");

/// Per-corner attributes that a native model file attaches to a triangle.
struct tr_extra {
    std::uint32_t key;          ///< 0xFFFFFFFF: there is no block
    unsigned char values[3][8]; ///< one opaque value for each corner
};

constexpr std::uint32_t k_no_extra = 0xFFFFFFFFu;

/// What is carried through the run and written out again, but decides nothing.
struct tr_cold {
    tr_h mate;           ///< symmetric pair link, or none; not counted
    std::uint32_t group; ///< group key
    float corner_val[3]; ///< one attribute for each corner
    tr_extra extra;
};

/// The spatial entry of a triangle. Its box is empty while the tree does not have it.
struct cell_obj {
    aabb box;            ///< of its triangle, with a margin while it comes from a reader
    std::uint32_t refs;  ///< lists that hold it
    std::uint32_t stamp; ///< mesh_ctx::visit_stamp when the current walk has seen it
    tr_h tr;             ///< its triangle; counted
};

extern pool<tr_rec> tr_pool;
extern pool<vtx_rec> vtx_pool;
extern pool<cell_obj> obj_pool;

/// True once a link may exist that its target does not answer: only then can it outlive the target.
extern bool links_may_dangle;

inline tr_rec& rec(tr_h t)
{
    return pool_at(tr_pool, t);
}
inline vtx_rec& rec(vtx_h v)
{
    return pool_at(vtx_pool, v);
}
inline cell_obj& rec(obj_h o)
{
    return pool_at(obj_pool, o);
}

/// Position of corner `i` of `tr`.
inline const float* corner_pos(const tr_rec& tr, int i)
{
    return rec(tr.vtx[i]).pos;
}

/// Next and next but one of the three slots of a triangle.
constexpr int next3(int i)
{
    return i == 2 ? 0 : i + 1;
}
constexpr int prev3(int i)
{
    return i == 0 ? 2 : i - 1;
}

/// The neighbour across edge `i`, or none; a neighbour that has died counts as none.
inline tr_h live_nbr(const tr_rec& tr, int i)
{
    const tr_h n = tr.nbr[i];
    if (links_may_dangle && n && rec(n).refs == 0) return {};
    return n;
}

/// A vertex at (0, 0, 0) that nobody holds, or none when memory ran out.
[[nodiscard]] vtx_h vtx_new();

/// Adds a holder and returns `v`, so that taking and storing stay on one line.
inline vtx_h vtx_ref(vtx_h v)
{
    vtx_rec& r = rec(v);
    ++r.holders;
    r.refs = static_cast<std::uint16_t>(r.refs + 1);
    return v;
}

/// Drops a holder; the last one frees `v`. A vertex that nobody holds is left alone, and a count
/// that has wrapped to 0 stays there.
void vtx_release(vtx_h v);

/// Puts `v` into a corner slot in the place of what stood there, leaving both counts as they are.
void vtx_overwrite(vtx_h* slot, vtx_h v);

/// A triangle as all new ones are: no corners, no links, no holder. Sets `*err` to err_no_memory
/// and gives none when memory ran out.
[[nodiscard]] tr_h tr_new(std::int32_t* err);

/// Adds a holder and returns `t`.
inline tr_h tr_ref(tr_h t)
{
    ++rec(t).refs;
    return t;
}

/// Drops a holder of a triangle that no object holds; the last one takes the corners, the links
/// and the record.
void tr_release(tr_h t);

/// Clears the neighbour slots of `t`, and in each neighbour the slot that points back.
void tr_unlink_nbrs(tr_h t);

/// Clears the pair link of `t`, and the mate's when it points back.
void tr_unlink_mate(tr_h t);

/// What `t` carries; a shared default when it carries nothing of its own.
const tr_cold& cold(tr_h t);

/// The same for writing; null when memory ran out.
[[nodiscard]] tr_cold* cold_for_write(tr_h t);

/// True once some triangle of the run has been given cold parts.
bool has_cold_parts();

/// True when any defect mark is set: such triangles hold up the first spread of the winding.
inline bool tr_has_problem(const tr_rec& tr)
{
    return (tr.flags & tr_any_problem) != 0;
}

/// Sets the mark of that number; numbers that name no mark are ignored.
void tr_set_mark(tr_h t, int number);

/// An object with an empty box and no triangle, held by nobody, or none when memory ran out.
[[nodiscard]] obj_h cell_obj_new();

/// Adds a holder and returns `o`.
inline obj_h cell_obj_ref(obj_h o)
{
    ++rec(o).refs;
    return o;
}

/// Drops a holder of `o`; the last one releases its triangle, which forgets `o` if it lives on.
/// Returns whether `o` died. An object that nobody holds is left alone.
bool cell_obj_release(obj_h o);

/// Gives the triangle of `o` its identity, above all given so far and never below the number of
/// triangles in the tree. One that it has already stands, unless `force`.
/// @return false when `o` has no triangle
bool tr_assign_id(obj_h o, bool force, mesh_ctx* ctx);

/// Gives all records back; every handle is void. For the end of a run.
void mesh_records_free();

} // namespace velmora
