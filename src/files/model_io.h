// files/model_io.h - triangles of an STL stream become mesh records, and mesh records triangles.
//
// Loading merges nothing: every triangle gets an object and three vertices of its own. The file's
// normals are never trusted; what is written has a normal computed here or by the run.
#pragma once

#include "files/stl_stream.h"
#include "mesh/context.h"

#include <cstdint>

namespace velmora {

/// Appends the triangles of `stream` to `list`, new ones in front, at most `limit` of them (one
/// more is then read and lost). Triangles beyond the kill value are dropped, their number logged.
/// A stream that fails part way is no failure: what was read stands, and `*err` is err_stl_input.
/// @param[out] bbox   box of all vertices, widened by twice the reader's margin
/// @param[out] count  triangles appended
/// @return stage_failed when memory ran out, `*err` then says so; the list stays the caller's
[[nodiscard]] stage_result stl_load_model(obj_list* list, aabb* bbox, std::uint32_t limit,
                                          std::uint32_t* count, stl_stream* stream,
                                          const coord_transform* transform, std::int32_t* err);

/// No corner coordinate of the triangle is beyond the kill value.
bool tr_in_kill_range(const stl_tri& tri);

/// Puts the triangle to the stream. One with two equal corners, or with a NaN coordinate, is passed
/// over. Gives it a normal first when it has none.
/// @return stage_failed on a failed write, with `*err` err_stl_output
[[nodiscard]] stage_result stl_write_tr(tr_h tr, const coord_transform* transform,
                                        std::int32_t* err, stl_stream* stream);

/// Computes the normal from the corner nearest to a right angle; zero when there is none. The marks
/// are not touched.
void tr_set_nrm(tr_rec* tr);

} // namespace velmora
