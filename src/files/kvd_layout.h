// files/kvd_layout.h - the bytes of a native model file, for its reader and its writer alone.
//
// A file is a row of blocks, each with a header in front. A model is three of them: its own header,
// which nothing follows, a section of vertices, a section of triangles.
#pragma once

#include "files/little_endian.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace velmora {

constexpr std::size_t k_kvd_header_size = 100;
constexpr std::size_t k_kvd_vtx_size = 12; ///< three f32
constexpr std::size_t k_kvd_tr_size = 80;

constexpr std::uint32_t k_kvd_none = 0xFFFFFFFFu; ///< no vertex, no neighbour, no extra block

/// Written for the reader of a dump; reading goes by the order of the blocks.
enum kvd_id : std::uint32_t {
    kvd_id_model = 333,
    kvd_id_vtxs = 444,
    kvd_id_trs = 555,
};

/// What a block outside of a model is. Any other value: a bare header.
enum kvd_type : std::uint32_t {
    kvd_type_model = 1,
    kvd_type_foreign = 2, ///< passed over by its size
};

/// What a header says, each a u32, in this order; zero bytes fill it up.
struct kvd_header {
    std::uint32_t id;
    std::uint32_t size; ///< bytes of the block, this header included
    std::uint32_t kind; ///< kvd_type; in a section the bytes of one record
    std::uint32_t count;
};

/// Where the fields of a triangle record begin.
enum kvd_tr_offset : std::size_t {
    kvd_tr_id = 0,
    kvd_tr_vtx = 4,           ///< three u32, places in the vertex section
    kvd_tr_nbr = 16,          ///< three i32, places in the triangle section; negative none
    kvd_tr_extra_key = 28,    ///< k_kvd_none: no block
    kvd_tr_extra_values = 32, ///< three times eight bytes
    kvd_tr_corner_val = 56,   ///< three f32
    kvd_tr_group = 68,
    kvd_tr_flags = 72, ///< u64
};

inline kvd_header kvd_get_header(const unsigned char* at)
{
    return {get_u32(at), get_u32(at + 4), get_u32(at + 8), get_u32(at + 12)};
}

inline void kvd_put_header(unsigned char* at, const kvd_header& header)
{
    std::memset(at, 0, k_kvd_header_size);
    put_u32(at, header.id);
    put_u32(at + 4, header.size);
    put_u32(at + 8, header.kind);
    put_u32(at + 12, header.count);
}

/// What a record that is too short lacks.
inline void kvd_put_default_tr(unsigned char* at)
{
    constexpr float k_no_corner_val = 255.0f;
    std::memset(at, 0, k_kvd_tr_size);
    std::memset(at, 0xFF, kvd_tr_extra_values);
    for (std::size_t i = 0; i < 3; ++i)
        put_f32(at + kvd_tr_corner_val + 4 * i, k_no_corner_val);
}

} // namespace velmora
