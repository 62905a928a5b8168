// run/model.h - the model comes in and goes out, whatever the form of its file.
#pragma once

#include "mesh/context.h"
#include "mesh/soup.h"

#include <cstdint>

namespace velmora {

/// A model between its file and the tree. All zero is none.
struct model_input {
    tr_soup soup;        ///< of an STL file
    obj_list list;       ///< of a `.kvd` file, which brings records; new ones in front
    std::uint32_t count; ///< triangles
    aabb bbox;           ///< box of the model with a margin
};

/// Reads the input. One that fails part way is told in the log and is no failure.
[[nodiscard]] stage_result read_model(model_input* in, std::int32_t* err, mesh_ctx* ctx);

/// Gives all memory back.
void free_input(model_input* in);

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
