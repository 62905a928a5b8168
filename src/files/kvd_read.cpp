#include "files/kvd.h"
#include "files/kvd_layout.h"
#include "files/kvd_source.h"
#include "files/os_file.h"
#include "mesh/box.h"
#include "mesh/cell_tree.h"
#include "mesh/measure.h"
#include "mesh/vec.h"

#include <algorithm>
#include <cstring>

namespace velmora {

namespace {

constexpr std::uint32_t k_first_room = 1024; ///< records, where the size of the file is not known

// The records of one section, by their place in it.
template <class rec_t> struct section {
    handle<rec_t>* items; ///< owned; the records are not
    std::uint32_t count;
    std::uint32_t capacity;
};

// The model that is being read. Until it stands on the list, a neighbour slot of its triangles
// holds no handle but a place in `trs` plus one.
struct kvd_model {
    section<vtx_rec> vtxs;
    section<tr_rec> trs;
};

template <class rec_t> bool grow(section<rec_t>* s, std::uint32_t capacity)
{
    if (capacity == 0) return true;
    void* grown = heap_realloc(s->items, sizeof(handle<rec_t>) * capacity);
    if (!grown) return false;
    s->items = static_cast<handle<rec_t>*>(grown);
    s->capacity = capacity;
    return true;
}

// Room for all records at once where they are known to be in the file, else as they come.
template <class rec_t>
bool start_section(section<rec_t>* s, const kvd_source& source, std::uint32_t count)
{
    return grow(s, source.sized ? count : std::min(count, k_first_room));
}

template <class rec_t> bool has_room(section<rec_t>* s, std::uint32_t count)
{
    if (s->count < s->capacity) return true;
    return grow(s, s->capacity > count / 2 ? count : s->capacity * 2);
}

bool read_section_header(kvd_source* source, kvd_header* header)
{
    const unsigned char* at = kvd_take(source, k_kvd_header_size);
    if (!at) return false;
    *header = kvd_get_header(at);
    if (header->count == 0) return true;
    const std::uint64_t size = static_cast<std::uint64_t>(header->kind) * header->count;
    return size != 0 && kvd_may_hold(*source, size);
}

// Reads a record over the `known` bytes of `image`: what it lacks stays there, and what it has
// beyond them is passed over.
bool read_over(kvd_source* source, std::size_t size, unsigned char* image, std::size_t known)
{
    const std::size_t used = std::min(size, known);
    const unsigned char* at = kvd_take(source, used);
    if (!at) return false;
    std::memcpy(image, at, used);
    return kvd_skip(source, size - used);
}

bool read_vtxs(kvd_source* source, section<vtx_rec>* vtxs)
{
    kvd_header header;
    if (!read_section_header(source, &header)) return false;
    if (!start_section(vtxs, *source, header.count)) return false;
    unsigned char image[k_kvd_vtx_size] = {};
    while (vtxs->count < header.count) {
        if (!read_over(source, header.kind, image, sizeof image)) return false;
        if (!has_room(vtxs, header.count)) return false;
        const vtx_h v = vtx_new();
        if (!v) return false;
        vec_set(rec(v).pos, get_f32(image), get_f32(image + 4), get_f32(image + 8));
        vtxs->items[vtxs->count++] = v;
    }
    return true;
}

// What differs from the default goes to the cold part; a plain model needs none.
bool take_carried(const unsigned char* at, tr_h t)
{
    tr_cold carried = cold(t);
    carried.group = get_u32(at + kvd_tr_group);
    for (std::size_t i = 0; i < 3; ++i)
        carried.corner_val[i] = get_f32(at + kvd_tr_corner_val + 4 * i);
    carried.extra.key = get_u32(at + kvd_tr_extra_key);
    if (carried.extra.key != k_no_extra)
        std::memcpy(carried.extra.values, at + kvd_tr_extra_values, sizeof carried.extra.values);
    // As bits, so that a NaN equals itself. NOLINTNEXTLINE(bugprone-suspicious-memory-comparison)
    if (std::memcmp(&carried, &cold(t), sizeof carried) == 0) return true;
    tr_cold* own = cold_for_write(t);
    if (own) *own = carried;
    return own != nullptr;
}

// Corner 0 has the better say where it has one.
void compute_nrm(tr_rec* tr)
{
    tr_recompute_nrm(tr, true, nullptr);
    float clean[3];
    if (tr_clean_normal(*tr, clean)) vec_copy(clean, tr->nrm);
}

// See kvd_model for what the neighbour slots get.
std::uint32_t nbr_place(std::uint32_t index, std::uint32_t count)
{
    const bool none = static_cast<std::int32_t>(index) < 0 || index >= count;
    return none ? 0 : index + 1;
}

// The normal sets and clears marks, so it comes after those of the file.
bool fill_tr(const unsigned char* at, const kvd_header& header, const section<vtx_rec>& vtxs,
             tr_rec* tr)
{
    tr->id = get_u32(at + kvd_tr_id);
    tr->flags = get_u64(at + kvd_tr_flags);
    for (std::size_t i = 0; i < 3; ++i) {
        const std::uint32_t vtx = get_u32(at + kvd_tr_vtx + 4 * i);
        if (vtx >= vtxs.count) return false; // "none" among them
        tr->vtx[i] = vtx_ref(vtxs.items[vtx]);
        tr->nbr[i].i = nbr_place(get_u32(at + kvd_tr_nbr + 4 * i), header.count);
    }
    compute_nrm(tr);
    return true;
}

bool read_trs(kvd_source* source, kvd_model* model, std::int32_t* err)
{
    kvd_header header;
    section<tr_rec>* trs = &model->trs;
    if (!read_section_header(source, &header)) return false;
    if (!start_section(trs, *source, header.count)) return false;
    unsigned char image[k_kvd_tr_size];
    kvd_put_default_tr(image);
    while (trs->count < header.count) {
        if (!read_over(source, header.kind, image, sizeof image)) return false;
        if (!has_room(trs, header.count)) return false;
        const tr_h t = tr_new(err);
        if (!t) return false;
        trs->items[trs->count++] = t;
        if (!fill_tr(image, header, model->vtxs, &rec(t))) return false;
        if (take_carried(image, t)) continue;
        *err = err_no_memory;
        return false;
    }
    return true;
}

bool add_trs(const section<tr_rec>& trs, obj_list* list, std::uint32_t* count, std::int32_t* err)
{
    for (std::uint32_t i = 0; i < trs.count; ++i) {
        if (!tr_wrap(trs.items[i], count, list, err)) return false;
        rec(trs.items[i]).flags |= tr_loaded;
    }
    return true;
}

bool same_edge(const tr_rec& a, int i, const tr_rec& b, int j)
{
    const vtx_h from = b.vtx[j];
    const vtx_h to = b.vtx[next3(j)];
    return (a.vtx[i] == from && a.vtx[next3(i)] == to) ||
           (a.vtx[i] == to && a.vtx[next3(i)] == from);
}

int slots_with(tr_h nbr, const tr_rec& tr)
{
    return (tr.nbr[0] == nbr) + (tr.nbr[1] == nbr) + (tr.nbr[2] == nbr);
}

// Just one link comes back, and across a common edge: whoever dies first clears both.
bool links_are_answered(tr_h t)
{
    const tr_rec& tr = rec(t);
    for (int i = 0; i < 3; ++i) {
        const tr_h n = tr.nbr[i];
        if (!n) continue;
        const tr_rec& nb = rec(n);
        if (n == t || slots_with(t, nb) != 1) return false;
        if (!same_edge(tr, i, nb, tr_nbr_index(t, nb))) return false;
    }
    return true;
}

void link_nbrs(const section<tr_rec>& trs)
{
    for (std::uint32_t i = 0; i < trs.count; ++i)
        for (tr_h& slot : rec(trs.items[i]).nbr)
            if (slot) slot = trs.items[slot.i - 1];
    for (std::uint32_t i = 0; i < trs.count && !links_may_dangle; ++i)
        links_may_dangle = !links_are_answered(trs.items[i]);
}

// What the list holds stays there, without links; nobody has the others.
void discard_trs(const section<tr_rec>& trs)
{
    for (std::uint32_t i = 0; i < trs.count; ++i) {
        tr_rec& tr = rec(trs.items[i]);
        std::fill(tr.nbr, tr.nbr + 3, tr_h{});
        if (tr.refs != 0) continue;
        tr.id = 0; // never in the mesh: the slot may be given out again
        tr_release(tr_ref(trs.items[i]));
    }
}

// Points that no triangle of the model uses.
void drop_loose_vtxs(const section<vtx_rec>& vtxs)
{
    for (std::uint32_t i = 0; i < vtxs.count; ++i)
        if (rec(vtxs.items[i]).holders == 0) vtx_release(vtx_ref(vtxs.items[i]));
}

bool read_model_block(kvd_source* source, obj_list* list, std::uint32_t* count, std::int32_t* err)
{
    kvd_model model = {};
    const bool done = read_vtxs(source, &model.vtxs) && read_trs(source, &model, err) &&
                      add_trs(model.trs, list, count, err);
    drop_loose_vtxs(model.vtxs);
    if (done) {
        link_nbrs(model.trs);
    } else {
        discard_trs(model.trs);
    }
    heap_free(model.vtxs.items);
    heap_free(model.trs.items);
    return done;
}

bool skip_block(kvd_source* source, std::uint32_t size)
{
    return size >= k_kvd_header_size && kvd_skip(source, size - k_kvd_header_size);
}

bool read_blocks(kvd_source* source, obj_list* list, std::uint32_t* count, bool* any_model,
                 std::int32_t* err)
{
    for (;;) {
        const unsigned char* at = kvd_take(source, k_kvd_header_size);
        if (!at) return kvd_at_end(*source);
        const kvd_header header = kvd_get_header(at);
        if (header.kind == kvd_type_model) {
            *any_model = true;
            if (!read_model_block(source, list, count, err)) return false;
        } else if (header.kind == kvd_type_foreign) {
            if (!skip_block(source, header.size)) return false;
        }
    }
}

void box_add_box(aabb* box, const aabb& part)
{
    for (int i = 0; i < 3; ++i) {
        if (part.min[i] < box->min[i]) box->min[i] = part.min[i];
        if (part.max[i] > box->max[i]) box->max[i] = part.max[i];
    }
}

void compute_boxes(const obj_list& list, aabb* bbox)
{
    const double margin = static_cast<double>(merge_tol);
    *bbox = k_no_box;
    for (const obj_h o : list) {
        cell_obj& obj = rec(o);
        obj.box = box_of_tr(rec(obj.tr));
        box_widen(&obj.box, margin);
        box_add_box(bbox, obj.box);
    }
    box_widen(bbox, margin);
}

} // namespace

stage_result kvd_read_handle(std::FILE* file, obj_list* list, std::uint32_t* count, aabb* bbox,
                             std::int32_t* err)
{
    kvd_source source;
    if (!kvd_source_open(file, &source)) return stage_failed;
    bool any_model = false;
    const bool done = read_blocks(&source, list, count, &any_model, err);
    kvd_source_close(&source);
    if (any_model) compute_boxes(*list, bbox);
    return done ? stage_ok : stage_failed;
}

stage_result kvd_read_model(const char* path, obj_list* list, std::uint32_t* count, aabb* bbox,
                            std::int32_t* err, mesh_ctx*)
{
    std::FILE* file = path ? os_open(path, "rb") : stdin;
    return kvd_read_handle(file, list, count, bbox, err);
}

} // namespace velmora
