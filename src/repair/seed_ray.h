// repair/seed_ray.h - rays through the tree: how often the surface lies between a point and the
// outside.
//
// A ray visits only the leaves on its way. It is clean when each of its crossings is: one that
// grazes an edge or a corner, or meets a triangle whose edge has too many users, tells nothing.
// Rays give triangles without a normal one to work with; they leave them unreached all the same.
//
// The first rays look at all that their leaves list. When they have looked at much, an index over
// all triangles is built, and later rays look only at what it finds near them.
#pragma once

#include "mesh/context.h"
#include "repair/ray_index.h"
#include "repair/ray_visits.h"

#include <cstdint>

namespace velmora {

struct ray_stop;

/// Where a ray starts.
struct ray_start {
    node_h leaf;        ///< one that lists the seed
    std::uint32_t path; ///< of the leaf, as in leaf_cell
    obj_h seed;
};

enum index_state {
    index_not_yet,
    index_stands,
    index_declined, ///< the model is not for it, or there was no memory
};

/// What a ray told, for the next one from the same place in the same direction.
struct ray_memory {
    std::uint32_t path; ///< of the leaf where it started; 0: there is no such ray, or triangles
                        ///< have changed since
    obj_h seed;
    float center[3];
    float dir[3];
    std::uint32_t hits; ///< of a clean ray, seed excluded
    tr_h spoiler;       ///< a triangle that made it not clean; none when it is clean
};

/// What the rays of one orientation share. Vertices must not move meanwhile.
struct ray_caster {
    const mesh_ctx* ctx;
    ray_index index;
    leaf_map leaves;   ///< for rays with the index,
    ray_visits visits; ///< and where they have been
    index_state state;
    std::uint64_t patience; ///< entries of leaves that rays may still look at without an index
    ray_stop* stops;        ///< of the last ray; owned
    std::uint32_t stop_count;
    std::uint32_t stop_capacity;
    ray_memory last[2]; ///< rays ahead and behind take turns
    std::uint32_t turn; ///< the one to be forgotten next
};

/// A caster for the tree of `ctx`.
ray_caster ray_caster_open(const mesh_ctx& ctx);

/// Gives all that rays have come by a normal, and the memory back.
void ray_caster_close(ray_caster* caster);

/// Must be told of each piece after its winding has been settled: `alone` when that changed no
/// triangle but the seed.
void ray_caster_settled(obj_h seed, bool alone, ray_caster* caster);

struct ray_answer {
    bool clean; ///< the parity can be trusted
    bool odd;   ///< an odd number of triangles was crossed; only told of a clean ray
};

/// Walks from `center`, on the triangle of the seed, along `dir` to the end of the model. Works on
/// without an index when there is no memory for one.
ray_answer cast_seed_ray(const ray_start& start, const float* center, const float* dir,
                         ray_caster* caster);

} // namespace velmora
