// mesh/audit.h - recounts all holders from nothing and compares the result with the records.
//
// Wrong counts show up late and far from their cause: a record dies under somebody who still reads
// it, or never dies. So checked builds and tests recount between the stages. An audit is opened
// (which counts what the tree holds), told of every holder outside the tree, and closed:
//
//     count_audit audit;
//     if (!audit_open(&audit, ctx)) ...       // memory
//     audit_list(&audit, chain);              // a chain of objects that is alive just now
//     audit_vtx(&audit, entry.vtx);           // a table that holds vertices
//     if (audit_close(&audit, stderr) != 0) ...
//
// Of a vertex the true number of holders is compared; the 16-bit count that decisions read wraps
// and is skipped by overwrites on purpose.
#pragma once

#include "mesh/context.h"
#include "mesh/records.h"

#include <cstdint>
#include <cstdio>

namespace velmora {

/// Holders found so far, by handle. Opened by audit_open, and given back by audit_close alone.
struct count_audit {
    std::uint32_t* objs; ///< lists and users that hold each object
    std::uint32_t* trs;  ///< holders of each triangle, its object not yet counted
    std::uint32_t* vtxs; ///< holders of each vertex, corners not yet counted
    std::uint32_t faults;
    std::uint32_t listed_objs; ///< different objects that some leaf lists
};

/// Starts an audit with the lists of all leaves; false when memory ran out, then nothing is held.
[[nodiscard]] bool audit_open(count_audit* audit, const mesh_ctx* ctx);

/// Further holders: each entry of a list, or one reference to one record. None is passed over.
void audit_list(count_audit* audit, const obj_list& list);
void audit_obj(count_audit* audit, obj_h obj);
void audit_tr(count_audit* audit, tr_h tr);
void audit_vtx(count_audit* audit, vtx_h vtx);

/// Compares and gives the audit's memory back. Writes a line for each of the first faults to `log`,
/// which may be null.
/// @return number of faults: wrong counts, and holders of records that were given back
std::uint32_t audit_close(count_audit* audit, std::FILE* log);

/// The whole audit of a mesh whose only holders are the tree and `count` lists; out of memory
/// counts as a fault.
std::uint32_t audit_counts(const mesh_ctx* ctx, const obj_list* const* lists, std::uint32_t count,
                           std::FILE* log);

/// The neighbour links of all triangles in the tree: across each edge a living triangle that is
/// not the triangle itself, and which points back as often as it is pointed at. Not required of a
/// mesh whose links may dangle.
/// @return number of links that break this
std::uint32_t audit_links(mesh_ctx* ctx, std::FILE* log);

} // namespace velmora
