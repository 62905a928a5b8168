#include "files/kvd.h"
#include "files/kvd_layout.h"
#include "files/os_file.h"
#include "mesh/memory.h"

#include <cstdio>
#include <cstring>

namespace velmora {

namespace {

constexpr std::size_t k_block = std::size_t{256} * 1024;

// Which corner, and which edge, of a triangle goes into the first, second and third slot.
struct slot_order {
    int corner[3];
    int edge[3];
};

constexpr slot_order k_as_it_is = {{0, 1, 2}, {0, 1, 2}};
constexpr slot_order k_turned = {{0, 2, 1}, {2, 1, 0}};

// One file that is being written, with the places that its records have there.
struct kvd_sink {
    std::FILE* file;
    unsigned char* buffer; ///< owned
    std::size_t fill;
    std::uint32_t* vtx_place; ///< by handle; owned
    std::uint32_t* tr_place;  ///< by handle; owned
    slot_order order;
};

bool flush(kvd_sink* sink)
{
    const std::size_t size = sink->fill;
    sink->fill = 0;
    return std::fwrite(sink->buffer, 1, size, sink->file) == size;
}

// Room for the next `size` bytes, which count as written; null when the file takes no more.
unsigned char* put(kvd_sink* sink, std::size_t size)
{
    if (k_block - sink->fill < size && !flush(sink)) return nullptr;
    unsigned char* at = sink->buffer + sink->fill;
    sink->fill += size;
    return at;
}

bool write_header(kvd_sink* sink, const kvd_header& header)
{
    unsigned char* at = put(sink, k_kvd_header_size);
    if (at) kvd_put_header(at, header);
    return at != nullptr;
}

// In a file of more than 4 GB the size of the model wraps; no reader goes by it.
bool write_model_header(kvd_sink* sink, std::uint32_t vtx_count, std::uint32_t tr_count)
{
    const std::size_t size =
        k_kvd_vtx_size * vtx_count + k_kvd_tr_size * tr_count + 3 * k_kvd_header_size;
    return write_header(sink, {kvd_id_model, static_cast<std::uint32_t>(size), kvd_type_model, 1});
}

bool write_section_header(kvd_sink* sink, kvd_id id, std::size_t record_size, std::uint32_t count)
{
    const std::size_t size = record_size * count + k_kvd_header_size;
    return write_header(sink, {id, static_cast<std::uint32_t>(size),
                               static_cast<std::uint32_t>(record_size), count});
}

// Calls `visit(vtx_h)` for each corner in the order in which the file meets them.
template <class vtx_fn>
bool for_each_corner(const kvd_sink& sink, const obj_list& list, vtx_fn visit)
{
    for (const obj_h o : list)
        for (const int i : sink.order.corner)
            if (!visit(rec(rec(o).tr).vtx[i])) return false;
    return true;
}

// Gives triangles their places in list order and vertices theirs in the order of first use.
// Returns the number of vertices.
std::uint32_t number_records(kvd_sink* sink, const obj_list& list)
{
    std::uint32_t tr_count = 0;
    for (const obj_h o : list)
        sink->tr_place[rec(o).tr.i] = tr_count++;
    std::uint32_t vtx_count = 0;
    for_each_corner(*sink, list, [&](vtx_h v) {
        if (sink->vtx_place[v.i] == k_kvd_none) sink->vtx_place[v.i] = vtx_count++;
        return true;
    });
    return vtx_count;
}

// A vertex is met for the first time when its place is the next one.
bool write_vtxs(kvd_sink* sink, const obj_list& list)
{
    std::uint32_t written = 0;
    return for_each_corner(*sink, list, [&](vtx_h v) {
        if (sink->vtx_place[v.i] != written) return true;
        ++written;
        unsigned char* at = put(sink, k_kvd_vtx_size);
        for (std::size_t i = 0; at && i < 3; ++i)
            put_f32(at + 4 * i, rec(v).pos[i]);
        return at != nullptr;
    });
}

void put_carried(unsigned char* at, const slot_order& order, const tr_cold& carried)
{
    const tr_extra& extra = carried.extra;
    put_u32(at + kvd_tr_group, carried.group);
    put_u32(at + kvd_tr_extra_key, extra.key);
    for (std::size_t i = 0; i < 3; ++i) {
        const int from = order.corner[i];
        put_f32(at + kvd_tr_corner_val + 4 * i, carried.corner_val[from]);
        std::memcpy(at + kvd_tr_extra_values + 8 * i, extra.values[from],
                    sizeof extra.values[from]);
    }
}

void put_tr(unsigned char* at, const kvd_sink& sink, tr_h t, bool no_nbrs)
{
    const tr_rec& tr = rec(t);
    kvd_put_default_tr(at);
    put_u32(at + kvd_tr_id, tr.id);
    put_u64(at + kvd_tr_flags, tr.flags);
    for (std::size_t i = 0; i < 3; ++i) {
        const tr_h n = live_nbr(tr, sink.order.edge[i]);
        put_u32(at + kvd_tr_vtx + 4 * i, sink.vtx_place[tr.vtx[sink.order.corner[i]].i]);
        put_u32(at + kvd_tr_nbr + 4 * i, n && !no_nbrs ? sink.tr_place[n.i] : k_kvd_none);
    }
    put_carried(at, sink.order, cold(t));
}

bool write_trs(kvd_sink* sink, const obj_list& list, bool no_nbrs)
{
    for (const obj_h o : list) {
        unsigned char* at = put(sink, k_kvd_tr_size);
        if (!at) return false;
        put_tr(at, *sink, rec(o).tr, no_nbrs);
    }
    return true;
}

bool write_model(kvd_sink* sink, const obj_list& list, bool no_nbrs)
{
    const std::uint32_t vtx_count = number_records(sink, list);
    return write_model_header(sink, vtx_count, list.count) &&
           write_section_header(sink, kvd_id_vtxs, k_kvd_vtx_size, vtx_count) &&
           write_vtxs(sink, list) &&
           write_section_header(sink, kvd_id_trs, k_kvd_tr_size, list.count) &&
           write_trs(sink, list, no_nbrs) && flush(sink);
}

// A place for every handle that was ever given out, none yet taken.
std::uint32_t* new_places(std::uint32_t used)
{
    const std::size_t size = sizeof(std::uint32_t) * (static_cast<std::size_t>(used) + 1);
    void* places = heap_alloc(size);
    if (places) std::memset(places, 0xFF, size);
    return static_cast<std::uint32_t*>(places);
}

// Appending, since others may have written to the file before.
bool write_to(const char* path, kvd_sink* sink, const obj_list& list, bool no_nbrs)
{
    sink->file = path ? os_open(path, "a+b") : stdout;
    if (!sink->file) return false;
    const bool written = write_model(sink, list, no_nbrs);
    const bool handed_over = (path ? std::fclose(sink->file) : std::fflush(stdout)) == 0;
    return written && handed_over;
}

} // namespace

stage_result kvd_write_model(const obj_list& list, const char* path, bool flip, bool no_nbrs)
{
    kvd_sink sink = {};
    sink.order = flip ? k_turned : k_as_it_is;
    sink.buffer = static_cast<unsigned char*>(heap_alloc(k_block));
    sink.vtx_place = new_places(vtx_pool.used);
    sink.tr_place = new_places(tr_pool.used);
    const bool done =
        sink.buffer && sink.vtx_place && sink.tr_place && write_to(path, &sink, list, no_nbrs);
    heap_free(sink.buffer);
    heap_free(sink.vtx_place);
    heap_free(sink.tr_place);
    return done ? stage_ok : stage_failed;
}

} // namespace velmora
