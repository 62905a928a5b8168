#include "repair/edge_sort.h"

#include "mesh/sort.h"
#include "mesh/vec.h"

#include <cstring>

namespace velmora {

namespace {

constexpr std::uint32_t k_records_per_tr = 6;
constexpr std::uint32_t k_max_trs = 0xFFFFFFFFu / k_records_per_tr;

// Position of a vertex as unsigned numbers that compare as the floats do, zeros of either sign
// being equal.
struct ranked_vtx {
    std::uint32_t key[3];
    vtx_h vtx;
};

std::uint32_t float_key(float f)
{
    constexpr std::uint32_t k_sign = 0x80000000u;
    std::uint32_t bits;
    std::memcpy(&bits, &f, sizeof bits);
    if (bits == k_sign) bits = 0;
    return bits & k_sign ? ~bits : bits | k_sign;
}

bool same_position(const ranked_vtx& a, const ranked_vtx& b)
{
    return a.key[0] == b.key[0] && a.key[1] == b.key[1] && a.key[2] == b.key[2];
}

bool goes_before_by_yz(const ranked_vtx& a, const ranked_vtx& b)
{
    return a.key[1] != b.key[1] ? a.key[1] < b.key[1] : a.key[2] < b.key[2];
}

constexpr std::uint32_t k_radix_bits = 11;
constexpr std::uint32_t k_radix_buckets = 1u << k_radix_bits;

// Stable radix sort by x, three rounds of 11 bits; the result is in `tmp`.
void sort_by_x(ranked_vtx* items, ranked_vtx* tmp, std::uint32_t n, std::uint32_t* buckets)
{
    for (std::uint32_t shift = 0; shift < 3 * k_radix_bits; shift += k_radix_bits) {
        std::memset(buckets, 0, sizeof *buckets * k_radix_buckets);
        for (std::uint32_t i = 0; i < n; ++i)
            ++buckets[(items[i].key[0] >> shift) & (k_radix_buckets - 1)];
        std::uint32_t place = 0;
        for (std::uint32_t b = 0; b < k_radix_buckets; ++b) {
            const std::uint32_t in_bucket = buckets[b];
            buckets[b] = place;
            place += in_bucket;
        }
        for (std::uint32_t i = 0; i < n; ++i)
            tmp[buckets[(items[i].key[0] >> shift) & (k_radix_buckets - 1)]++] = items[i];
        ranked_vtx* const swap = items;
        items = tmp;
        tmp = swap;
    }
}

// Everything that exists only while the table is sorted.
struct rank_work {
    std::uint32_t* ranks;     // by vertex handle: 0 in no triangle, else the rank, from 1
    ranked_vtx* items;        // the vertices, once each
    ranked_vtx* tmp;          // room for as many
    std::uint32_t* buckets;   // counters of the radix sort, then the start of each own key
    std::uint32_t vtx_count;  // entries of items
    std::uint32_t rank_count; // different positions
};

void rank_work_free(rank_work* w)
{
    heap_free(w->ranks);
    heap_free(w->items);
    heap_free(w->tmp);
    heap_free(w->buckets);
    *w = {};
}

enum rank_result {
    ranks_done,
    ranks_no_memory,
    ranks_have_nan
};

void mark_vertices(const edge_sort& table, rank_work* w)
{
    const std::uint32_t tr_count = table.count / k_records_per_tr;
    for (std::uint32_t k = 0; k < tr_count; ++k)
        for (const vtx_h v : rec(table.trs[k]).vtx) {
            if (w->ranks[v.i] == 0) ++w->vtx_count;
            w->ranks[v.i] = 1;
        }
}

// Lists every corner's vertex once.
rank_result collect_vertices(const edge_sort& table, rank_work* w)
{
    mark_vertices(table, w);
    w->items = heap_array<ranked_vtx>(w->vtx_count);
    w->tmp = heap_array<ranked_vtx>(w->vtx_count);
    if (!w->items || !w->tmp) return ranks_no_memory;
    std::uint32_t n = 0;
    for (std::uint32_t v = 1; v < vtx_pool.used; ++v) {
        if (w->ranks[v] == 0) continue;
        const float* pos = rec(vtx_h{v}).pos;
        if (vec_has_nan(pos)) return ranks_have_nan;
        w->items[n++] = {{float_key(pos[0]), float_key(pos[1]), float_key(pos[2])}, vtx_h{v}};
    }
    return ranks_done;
}

void assign_ranks(rank_work* w)
{
    ranked_vtx* const sorted = w->tmp;
    sort_by_x(w->items, w->tmp, w->vtx_count, w->buckets);
    for (std::uint32_t start = 0, end = 0; start < w->vtx_count; start = end) {
        for (end = start + 1; end < w->vtx_count; ++end)
            if (sorted[end].key[0] != sorted[start].key[0]) break;
        merge_sort(sorted + start, w->items, end - start, goes_before_by_yz);
    }
    for (std::uint32_t i = 0; i < w->vtx_count; ++i) {
        if (i == 0 || !same_position(sorted[i - 1], sorted[i])) ++w->rank_count;
        w->ranks[sorted[i].vtx.i] = w->rank_count;
    }
}

rank_result rank_vertices(const edge_sort& table, rank_work* w)
{
    w->ranks = heap_array<std::uint32_t>(vtx_pool.used);
    if (!w->ranks) return ranks_no_memory;
    std::memset(w->ranks, 0, sizeof(std::uint32_t) * vtx_pool.used);
    const rank_result result = collect_vertices(table, w);
    if (result != ranks_done) return result;
    w->buckets = heap_array<std::uint32_t>(w->vtx_count + 2 > k_radix_buckets ? w->vtx_count + 2
                                                                              : k_radix_buckets);
    if (!w->buckets) return ranks_no_memory;
    assign_ranks(w);
    return ranks_done;
}

// Distributes the records by own rank. The twin's rank waits in `live`, by place.
void scatter_records(edge_sort* table, rank_work* w)
{
    const std::uint32_t tr_count = table->count / k_records_per_tr;
    std::uint32_t* const starts = w->buckets;
    std::memset(starts, 0, sizeof *starts * (w->rank_count + 2));
    for (std::uint32_t k = 0; k < tr_count; ++k)
        for (const vtx_h v : rec(table->trs[k]).vtx)
            starts[w->ranks[v.i] + 1] += 2;
    for (std::uint32_t r = 1; r <= w->rank_count + 1; ++r)
        starts[r] += starts[r - 1];
    for (std::uint32_t k = 0; k < tr_count; ++k) {
        const tr_rec& tr = rec(table->trs[k]);
        const std::uint32_t rank[3] = {w->ranks[tr.vtx[0].i], w->ranks[tr.vtx[1].i],
                                       w->ranks[tr.vtx[2].i]};
        for (std::uint32_t e = 0; e < 3; ++e) {
            const std::uint32_t from = rank[e];
            const std::uint32_t to = rank[e == 2 ? 0 : e + 1];
            const std::uint32_t first = k * k_records_per_tr + 2 * e;
            const std::uint32_t a = starts[from]++;
            table->sorted[a] = first;
            table->live[a] = to;
            const std::uint32_t b = starts[to]++;
            table->sorted[b] = first + 1;
            table->live[b] = from;
        }
    }
}

constexpr std::uint32_t k_small_run = 64;

// Orders one run of equal own keys by (twin's rank, record) and notes where it steps.
void sort_run_by_twin(edge_sort* table, std::uint32_t start, std::uint32_t end, std::uint64_t* keys,
                      std::uint64_t* tmp)
{
    const std::uint32_t n = end - start;
    for (std::uint32_t i = 0; i < n; ++i)
        keys[i] =
            static_cast<std::uint64_t>(table->live[start + i]) << 32 | table->sorted[start + i];
    merge_sort(keys, tmp, n, [](std::uint64_t a, std::uint64_t b) { return a < b; });
    for (std::uint32_t i = 0; i < n; ++i) {
        table->sorted[start + i] = static_cast<std::uint32_t>(keys[i]);
        const bool steps = i == 0 || keys[i - 1] >> 32 != keys[i] >> 32;
        table->steps[start + i] = steps ? edge_step_twin : 0;
    }
    table->steps[start] |= edge_step_own;
}

bool sort_long_run(edge_sort* table, std::uint32_t start, std::uint32_t end)
{
    auto* keys = heap_array<std::uint64_t>(2 * static_cast<std::size_t>(end - start));
    if (!keys) return false;
    sort_run_by_twin(table, start, end, keys, keys + (end - start));
    heap_free(keys);
    return true;
}

// After the scatter, starts[r] is the end of rank r's run.
bool sort_runs(edge_sort* table, const rank_work& w)
{
    std::uint64_t keys[k_small_run];
    std::uint64_t tmp[k_small_run];
    for (std::uint32_t r = 1; r <= w.rank_count; ++r) {
        const std::uint32_t start = w.buckets[r - 1];
        const std::uint32_t end = w.buckets[r];
        if (end - start <= k_small_run) {
            sort_run_by_twin(table, start, end, keys, tmp);
        } else if (!sort_long_run(table, start, end)) {
            return false;
        }
    }
    return true;
}

void note_places(edge_sort* table)
{
    for (std::uint32_t place = 0; place < table->count; ++place)
        table->live[table->sorted[place]] = place + 1;
}

// With a NaN among the keys the comparison is no strict order, and only comparing itself gives the
// order that the merge sort makes of it.
void sort_by_comparing(edge_sort* table)
{
    for (std::uint32_t r = 0; r < table->count; ++r)
        table->sorted[r] = r;
    merge_sort(table->sorted, table->live, table->count, [&](std::uint32_t a, std::uint32_t b) {
        const int own = edge_compare_ends(*table, a, b);
        return own != 0 ? own < 0 : edge_compare_ends(*table, edge_twin(a), edge_twin(b)) < 0;
    });
    for (std::uint32_t place = 0; place < table->count; ++place) {
        const std::uint32_t r = table->sorted[place];
        const std::uint32_t before = table->sorted[place ? place - 1 : 0];
        if (place == 0 || !edge_same_end(*table, before, r)) {
            table->steps[place] = edge_step_own | edge_step_twin;
        } else {
            const bool same = edge_same_end(*table, edge_twin(before), edge_twin(r));
            table->steps[place] = same ? 0 : edge_step_twin;
        }
    }
    note_places(table);
}

bool sort_by_ranks(edge_sort* table, rank_work* w)
{
    scatter_records(table, w);
    if (!sort_runs(table, *w)) return false;
    note_places(table);
    return true;
}

} // namespace

bool edge_sort_build(const obj_list& objs, edge_sort* table)
{
    *table = {};
    if (objs.count == 0) return true;
    if (objs.count > k_max_trs) return false;
    table->count = objs.count * k_records_per_tr;
    table->trs = heap_array<tr_h>(objs.count);
    table->sorted = heap_array<std::uint32_t>(table->count);
    table->live = heap_array<std::uint32_t>(table->count);
    table->steps = heap_array<std::uint8_t>(table->count);
    if (!table->trs || !table->sorted || !table->live || !table->steps) {
        edge_sort_free(table);
        return false;
    }
    std::uint32_t k = 0;
    for (const obj_h o : objs)
        table->trs[k++] = rec(o).tr;
    return true;
}

bool edge_sort_run(edge_sort* table)
{
    if (table->count == 0) return true;
    rank_work w = {};
    const rank_result ranked = rank_vertices(*table, &w);
    table->ordered = ranked == ranks_done;
    const bool sorted = table->ordered && sort_by_ranks(table, &w);
    rank_work_free(&w);
    if (ranked == ranks_have_nan) sort_by_comparing(table);
    return sorted || ranked == ranks_have_nan;
}

void edge_sort_free(edge_sort* table)
{
    heap_free(table->trs);
    heap_free(table->sorted);
    heap_free(table->live);
    heap_free(table->steps);
    *table = {};
}

int edge_compare_ends(const edge_sort& table, std::uint32_t a, std::uint32_t b)
{
    const vtx_h va = edge_vtx(table, a);
    const vtx_h vb = edge_vtx(table, b);
    if (va == vb) return 0;
    const float* pa = rec(va).pos;
    const float* pb = rec(vb).pos;
    for (int i = 0; i < 3; ++i) {
        if (pa[i] < pb[i]) return -1;
        if (pa[i] > pb[i]) return 1;
    }
    return 0;
}

bool edge_same_end(const edge_sort& table, std::uint32_t a, std::uint32_t b)
{
    return pts_same(rec(edge_vtx(table, a)).pos, rec(edge_vtx(table, b)).pos);
}

} // namespace velmora
