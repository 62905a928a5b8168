#include "repair/stitch.h"

#include "mesh/measure.h"
#include "repair/abort_test.h"
#include "repair/edge_groups.h"

namespace velmora {

namespace {

// Every crowded edge asks two questions about the records with its own key and about those behind
// them. As the walk only goes forward and records only drop out, both answers only ever move one
// way, so that all questions together cost one pass.
struct own_run {
    std::uint32_t end = 0;       // first place behind the run
    std::uint32_t next_live = 0; // no live record lies between `end` and this place
    std::uint32_t last_live = 0; // no live record of the run lies behind this place
};

bool place_is_live(const edge_sort& table, std::uint32_t place)
{
    return edge_is_live(table, table.sorted[place]);
}

void enter_run(const edge_sort& table, std::uint32_t place, own_run* run)
{
    run->end = edge_own_end(table, place);
    run->last_live = run->end - 1;
    if (run->next_live < run->end) run->next_live = run->end;
}

// Whether a live record stands behind the run.
bool live_behind(const edge_sort& table, own_run* run)
{
    while (run->next_live < table.count && !place_is_live(table, run->next_live))
        ++run->next_live;
    return run->next_live < table.count;
}

std::uint32_t last_live_of(const edge_sort& table, own_run* run)
{
    while (!place_is_live(table, run->last_live))
        --run->last_live;
    return run->last_live;
}

std::uint32_t live_between(const edge_sort& table, std::uint32_t place, std::uint32_t end)
{
    std::uint32_t count = 0;
    while (++place < end)
        if (place_is_live(table, place)) ++count;
    return count;
}

void take_out_edge(edge_sort* table, std::uint32_t record)
{
    edge_take_out(table, edge_twin(record));
    edge_take_out(table, record);
}

// Takes the edge at `place` out with all that equal it, up to `end`. The walk over them is to end
// at a record with another own key or, where no such record is left, at the run's last live one;
// if that has been taken out on the way, the walk runs off the table, and the edge's own record
// stays live.
void drop_pair_run(edge_sort* table, std::uint32_t place, std::uint32_t end, own_run* run)
{
    const bool ends_behind = live_behind(*table, run);
    const std::uint32_t last = ends_behind ? table->count : last_live_of(*table, run);
    bool met_last = last >= end;
    for (std::uint32_t at = place + 1; at < end; ++at) {
        if (!place_is_live(*table, at)) continue;
        take_out_edge(table, table->sorted[at]);
        if (at == last) met_last = true;
    }
    const bool ran_off = ends_behind ? !live_behind(*table, run) : !met_last;
    edge_take_out(table, edge_twin(table->sorted[place]));
    if (!ran_off) edge_take_out(table, table->sorted[place]);
}

void drop_crowded_ordered(edge_sort* table)
{
    own_run run;
    for (std::uint32_t place = 0; place < table->count; ++place) {
        if (!place_is_live(*table, place)) continue;
        if (place >= run.end) enter_run(*table, place, &run);
        const std::uint32_t end = edge_pair_end(*table, place);
        if (live_between(*table, place, end) > 1) drop_pair_run(table, place, end, &run);
    }
}

bool same_ends(const edge_sort& table, std::uint32_t a, std::uint32_t b)
{
    return edge_same_end(table, edge_twin(a), edge_twin(b));
}

// Where the keys are in no strict order, equal ones need not lie side by side: record by record.
void drop_crowded_at(edge_sort* table, std::uint32_t place)
{
    const std::uint32_t r = table->sorted[place];
    std::uint32_t same = 0;
    std::uint32_t last = place;
    for (std::uint32_t at = place; (at = edge_next_live(*table, at)) < table->count;) {
        last = at;
        if (!edge_same_end(*table, r, table->sorted[at])) break;
        if (same_ends(*table, r, table->sorted[at])) ++same;
    }
    if (same <= 1) return;
    std::uint32_t at = place;
    while (at != last && (at = edge_next_live(*table, at)) < table->count) {
        const std::uint32_t q = table->sorted[at];
        if (!edge_same_end(*table, r, q)) break;
        if (same_ends(*table, r, q)) take_out_edge(table, q);
    }
    edge_take_out(table, edge_twin(r));
    if (at < table->count) edge_take_out(table, r);
}

void drop_crowded_unordered(edge_sort* table)
{
    for (std::uint32_t place = 0; place < table->count; ++place)
        if (place_is_live(*table, place)) drop_crowded_at(table, place);
}

bool slot_is_taken(const tr_rec& tr, int slot, tr_h by_other_than)
{
    const tr_h n = live_nbr(tr, slot);
    return n && n != by_other_than;
}

// Puts a's records into b's corners on the edge. Merged corners have them already, so no count
// changes.
void share_ends(const edge_sort& table, std::uint32_t a, std::uint32_t b)
{
    const vtx_h a0 = edge_vtx(table, a);
    const vtx_h a1 = edge_vtx(table, edge_twin(a));
    tr_rec& tr = rec(edge_tr(table, b));
    const int s = edge_slot(b);
    const bool is_start = tr.vtx[s] == edge_vtx(table, b);
    vtx_overwrite(&tr.vtx[s], is_start ? a0 : a1);
    vtx_overwrite(&tr.vtx[next3(s)], is_start ? a1 : a0);
}

// With strictly ordered keys the next live record is equal in both keys or ends the search.
void match_ordered(edge_sort* table)
{
    for (std::uint32_t place = 0; place < table->count; ++place) {
        if (abort_test()) return;
        if (!place_is_live(*table, place)) continue;
        const std::uint32_t next = edge_next_live(*table, place);
        if (next == table->count) return;
        if (next < edge_pair_end(*table, place))
            edge_link(table, table->sorted[place], table->sorted[next]);
    }
}

// False when no live record is left behind the place.
bool match_at(edge_sort* table, std::uint32_t place)
{
    const std::uint32_t r = table->sorted[place];
    for (std::uint32_t at = place;;) {
        at = edge_next_live(*table, at);
        if (at == table->count) return false;
        const std::uint32_t q = table->sorted[at];
        if (!edge_same_end(*table, r, q)) return true;
        const int order = edge_compare_ends(*table, edge_twin(r), edge_twin(q));
        if (order > 0) continue;
        if (order == 0) edge_link(table, r, q);
        return true;
    }
}

void match_unordered(edge_sort* table)
{
    for (std::uint32_t place = 0; place < table->count; ++place) {
        if (abort_test()) return;
        if (place_is_live(*table, place) && !match_at(table, place)) return;
    }
}

} // namespace

void edge_drop_crowded(edge_sort* table)
{
    if (table->ordered) {
        drop_crowded_ordered(table);
    } else {
        drop_crowded_unordered(table);
    }
}

void edge_match(edge_sort* table)
{
    if (table->ordered) {
        match_ordered(table);
    } else {
        match_unordered(table);
    }
}

void edge_link(edge_sort* table, std::uint32_t a, std::uint32_t b)
{
    const tr_h ta = edge_tr(*table, a);
    const tr_h tb = edge_tr(*table, b);
    const int sa = edge_slot(a);
    const int sb = edge_slot(b);
    if (tr_same_vertices(rec(ta), rec(tb))) return;
    if (slot_is_taken(rec(ta), sa, tb) || slot_is_taken(rec(tb), sb, ta)) return;
    rec(ta).nbr[sa] = tb;
    rec(tb).nbr[sb] = ta;
    share_ends(*table, a, b);
    take_out_edge(table, a);
    take_out_edge(table, b);
}

// Both ends of the edge are the same records already, so only the slots are set.
static void link_sides(edge_side a, edge_side b)
{
    const tr_h ta = side_tr(a);
    const tr_h tb = side_tr(b);
    if (tr_same_vertices(rec(ta), rec(tb))) return;
    if (slot_is_taken(rec(ta), side_slot(a), tb) || slot_is_taken(rec(tb), side_slot(b), ta))
        return;
    rec(ta).nbr[side_slot(a)] = tb;
    rec(tb).nbr[side_slot(b)] = ta;
}

// An edge with more than two users is linked for none of them.
void stitch_distinct(edge_groups* groups)
{
    for_each_edge_group(groups, [](const edge_group& group) {
        if (group.count == 2) link_sides(group.first[0], group.first[1]);
    });
}

bool stitch_edges(const obj_list& objs)
{
    edge_sort table;
    if (!edge_sort_build(objs, &table)) return false;
    const bool sorted = edge_sort_run(&table);
    if (sorted) {
        edge_drop_crowded(&table);
        edge_match(&table);
    }
    edge_sort_free(&table);
    return sorted;
}

} // namespace velmora
