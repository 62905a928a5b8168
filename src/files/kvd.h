// files/kvd.h - native model files: shared vertices, neighbour links, marks and carried values.
//
// Unlike STL a .kvd file brings a connected mesh; docs/formats.md has its bytes. What it says is
// never trusted: a count is held against the size of the file before anything is made for it, and
// an index against its section before it is followed.
#pragma once

#include "mesh/context.h"

#include <cstdint>
#include <cstdio>

namespace velmora {

/// Adds the triangles of all models in a file to `list`, new ones in front, each with a normal of
/// its own computing. Their boxes, and those of what was on the list before, get a margin of
/// merge_tol. Neighbour links are taken as they stand in the file, answered or not.
/// @param path          null: the standard input, which stays open
/// @param[in,out] count raised for each triangle
/// @param[out] bbox     box of the whole list with the margin twice; untouched without any model
/// @param[out] err      err_no_memory when a triangle could not be made or listed, else untouched
/// @return stage_failed when the file is cut or wrong, or memory ran out; the models before the
///         fault stay on the list, complete
[[nodiscard]] stage_result kvd_read_model(const char* path, obj_list* list, std::uint32_t* count,
                                          aabb* bbox, std::int32_t* err, mesh_ctx* ctx);

/// The same from a handle that stands where the file begins, and is closed in the end unless it is
/// the standard input; null is a failure.
[[nodiscard]] stage_result kvd_read_handle(std::FILE* file, obj_list* list, std::uint32_t* count,
                                           aabb* bbox, std::int32_t* err);

/// Appends one model with the triangles of `list`, front to back, and their vertices in the order
/// of first use.
/// @param path    null: the standard output, which stays open
/// @param flip    every triangle the other way round; the mesh itself is left as it is
/// @param no_nbrs write no neighbour links
/// @return stage_failed when memory ran out or not all bytes could be handed over
[[nodiscard]] stage_result kvd_write_model(const obj_list& list, const char* path, bool flip,
                                           bool no_nbrs);

} // namespace velmora
