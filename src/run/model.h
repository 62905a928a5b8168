// run/model.h - the model comes in and goes out, whatever the form of its file.
#pragma once

#include "mesh/context.h"

#include <cstdint>

namespace velmora {

/// Reads the input into `list`, new triangles in front. An input that fails part way is told in the
/// log and is no failure.
/// @param[out] bbox  box of the model with a margin
[[nodiscard]] stage_result read_model(obj_list* list, std::uint32_t* count, aabb* bbox,
                                      std::int32_t* err, mesh_ctx* ctx);

/// Logs the ranges and extents of the model's box.
void log_extents(const aabb& bbox);

/// Writes all triangles of the tree and tells their number once every byte has been handed over; a
/// failure is told instead, and the run goes on.
void write_output(std::int32_t* err, mesh_ctx* ctx);

/// Finishes the output files and closes them.
void close_output();

/// Closes output files of a run that did not come to its end, without finishing them.
void discard_output();

/// Frees a stream without writing the end of its file; null is allowed.
void discard_stream(stl_stream** stream);

/// errno of the failed read of the input.
int input_errno();

} // namespace velmora
