// files/model_io.h - triangles of an STL stream become mesh records, and mesh records triangles.
//
// The file's normals are never trusted; what is written has a normal computed here or by the run.
#pragma once

#include "files/stl_stream.h"
#include "mesh/context.h"
#include "mesh/soup.h"

#include <cstdint>

namespace velmora {

/// Appends the triangles of `stream` to `soup` until it has `limit` of them (one more is then read
/// and lost). Triangles beyond the kill value are dropped, their number logged. A stream that fails
/// part way is no failure: what was read stands, and `*err` is err_stl_input.
/// @param[out] bbox  box of all vertices, widened by twice the reader's margin
/// @return stage_failed when memory ran out, `*err` then says so; the soup stays the caller's
[[nodiscard]] stage_result stl_load_model(tr_soup* soup, aabb* bbox, std::uint32_t limit,
                                          stl_stream* stream, const coord_transform* transform,
                                          std::int32_t* err);

/// By how much the box of a triangle from a reader is wider than the triangle: points within
/// merge_tol of each other then always have a leaf in common.
double reader_margin();

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
