// mesh/context.h - the run-wide records: one of each per run, handed down to every stage.
//
// mesh_ctx is the mesh store (tree, counts, stamps), model_ctx stands between the run and its
// files, topo_ctx keeps the topology's results and whatever lives from one stage to the next.
#pragma once

#include "mesh/obj_list.h"
#include "mesh/records.h"

#include <cstdint>

namespace velmora {

struct stl_stream;
struct edge_groups;
struct edge_rec;
struct plg_cell;
struct vtx_table;
struct reduce_params;

/// What a stage answers. A failure that has a number also writes it into the stage's err slot.
enum stage_result : std::int32_t {
    stage_failed = 0,
    stage_ok = 1,
};

/// Numbers for err slots; each has a text in the log.
enum run_error : std::int32_t {
    err_none = 0,
    err_no_memory = 1,
    err_output = 3,
    err_stl_output = 4,
    err_stl_input = 5,
};

/// Scale, then shift, of the coordinates that a reader delivers; the writer takes it back.
struct coord_transform {
    std::uint32_t shift_on;
    double shift[3]; ///< subtracted per axis
    std::uint32_t scale_on;
    double scale[3]; ///< factor per axis
};

/// Edges that more than two triangles claim, in order of discovery. Entries move when it grows.
struct edge_tbl {
    std::uint32_t count;
    std::uint32_t capacity;
    edge_rec* entries;        ///< owned
    std::uint32_t* slots;     ///< hash of the ends: an entry's place plus 1, 0 free; owned
    std::uint32_t slot_count; ///< a power of two, or 0
};

/// What is known of the vertices of a mesh before its first merge.
enum weld_state : std::uint32_t {
    weld_none,    ///< nothing
    weld_some,    ///< the merge would change nothing but corners of triangles with tr_may_merge
    weld_done,    ///< the merge would change nothing
    weld_distinct ///< nor have two vertices one position, and all coordinates are finite
};

struct topo_ctx {
    std::uint32_t tri_with_3_nbrs; ///< reported; no step counts it, so it stays 0
    std::uint32_t thin_deleted;    ///< reported; stays 0
    std::uint32_t dup_removed;     ///< reported; stays 0
    std::uint32_t dup_pairs;       ///< reported; stays 0
    std::uint32_t edge_errors;     ///< claims on an edge that was already taken
    std::uint32_t reuse;           ///< 0 in the first topology step of a run, 1 later
    std::uint32_t tri_oriented;    ///< triangles that got their normal in the last orientation
    std::uint32_t components;      ///< seeds judged by a usable ray
    std::uint32_t inconsistent;    ///< reported; pairs are not examined, so it stays 0
    std::uint32_t orient_a;        ///< 1: keep the sense that the ray found
    std::uint32_t orient_b;        ///< 1: compute normals
    std::uint32_t orient_mode;     ///< 0 in every run
    weld_state weld;               ///< left by whoever made the vertices
    /// No two vertices have one position, and all coordinates are finite: found after the merge,
    /// and true from then on, since vertices neither move nor come anew.
    bool vtx_distinct;

    edge_groups* sides; ///< all edges, from linking up to orientation; owned by the run
    const coord_transform* transform; ///< none in every run
    edge_tbl edge_errs;               ///< the crowded edges
    obj_list edge_err_list;           ///< one entry for each row of edge errors of a triangle
    obj_list lone_list;               ///< triangles without any neighbour
    std::int32_t lone_count;          ///< of them, once per leaf
    plg_cell* plg_list;               ///< boundary polygons of this turn; owned
    std::int32_t plg_count;
    vtx_table* table; ///< per-vertex records; owned by the run
    reduce_params* params;
};

struct model_ctx {
    std::uint32_t tri_with_3_nbrs; ///< copy of the topology's, after each topology step
    std::uint32_t tri_oriented;    ///< copy of the orientation's
    std::uint32_t in_kind;         ///< input format: 0 none, 1 STL, 2 and 3 reserved
    std::uint32_t removed_kind;    ///< 1 when the removed-triangle stream is open
    std::uint32_t out_kind;        ///< 1 when the STL output stream is open
    stl_stream* in_stream;
    stl_stream* removed_stream;
    stl_stream* out_stream;
    const char* prog_name;
    topo_ctx* topo;
};

struct mesh_ctx {
    node_h root;                 ///< the tree, or none
    std::uint32_t tr_count;      ///< triangles in the tree
    std::uint32_t grow_limit;    ///< when longest_list exceeds it, the tree's limits grow
    std::uint32_t max_level;     ///< deepest level at which a cell may be split
    std::uint32_t max_list;      ///< list length at which a cell is split
    std::uint32_t visit_stamp;   ///< stamp of the current walk; only ever incremented
    std::uint32_t deepest_level; ///< greatest level at which an object reached a leaf
    std::uint32_t longest_list;  ///< greatest length that any leaf's list reached
    std::uint32_t next_id;       ///< last identity given out
    /// The objects of the tree have handles in the order in which a walk meets them, and all others
    /// that live have an empty box: walks may go through the pool instead.
    bool in_order;
    /// Asked at each leaf before an object is stored; true refuses it. May be null.
    bool (*insert_hook)(node_h leaf, obj_h obj);
    model_ctx* model;
    topo_ctx* topo;
};

/// Empty store with default limits.
void mesh_ctx_init(mesh_ctx* ctx, bool (*insert_hook)(node_h, obj_h));

} // namespace velmora
