#include "plg/split.h"

#include "mesh/memory.h"
#include "mesh/pt_hash.h"
#include "mesh/vec.h"

#include <cstring>

namespace velmora {

namespace {

constexpr std::uint32_t k_never = 0xFFFFFFFFu;
constexpr std::uint32_t k_shortest_split = 4; ///< points; fewer leave no place for a repeat

// A polygon that is being scanned for its first repeat. Its points up to the place of the scan lie
// on the stack of nodes; beyond it, it runs through all places from `ahead` to `last`.
struct split_frame {
    std::uint32_t base;  // of its nodes on the stack
    std::uint32_t same;  // the latest place known to equal the node on top
    std::uint32_t ahead; // the place after the node on top
    std::uint32_t last;  // its last place
    std::uint32_t slot;  // where it goes when no repeat is left
};

// Room for polygons of up to a given number of points. Points are named by their place in the
// polygon that the list holds. Each cut has two slots, for the rest and then for the loop; one that
// was cut again leaves its slot empty.
struct split_room {
    std::uint32_t* table;     // open addressing; one-based places
    std::uint32_t* next_same; // for each place, the next one with an equal point
    std::uint32_t* nodes;     // the stack
    std::uint32_t node_count;
    split_frame* frames;
    std::uint32_t frame_count;
    plg_cell** slots;
    std::uint32_t slot_count;
};

// The list of a run of the stage: pieces go in front, and the cell that came first ends them.
struct piece_list {
    plg_cell* head;
    plg_cell** end;
};

template <class item_t> item_t* alloc_items(std::size_t n)
{
    // NOLINTNEXTLINE(bugprone-sizeof-expression): the slots are meant to be pointers
    return static_cast<item_t*>(heap_alloc(sizeof(item_t) * n));
}

// A frame inside another is shorter by one point at each end, and puts one point on the stack that
// is there already. A loop has two segments at least, so there are fewer cuts than half the points.
bool room_alloc(split_room* room, std::uint32_t points)
{
    const std::size_t n = points;
    *room = {};
    room->table = alloc_items<std::uint32_t>(table_size_for(points * 2));
    room->next_same = alloc_items<std::uint32_t>(n);
    room->nodes = alloc_items<std::uint32_t>(n * 2);
    room->frames = alloc_items<split_frame>(n);
    room->slots = alloc_items<plg_cell*>(n);
    return room->table && room->next_same && room->nodes && room->frames && room->slots;
}

void room_free(split_room* room)
{
    heap_free(room->table);
    heap_free(room->next_same);
    heap_free(room->nodes);
    heap_free(room->frames);
    heap_free(room->slots);
}

// Links equal points, from the back, so that the table always has the nearest one. The closing
// point counts as no repeat and stays out; so does a NaN, which equals nothing.
void link_same_points(const plg_rec& plg, split_room* room)
{
    const std::uint32_t n = plg.points.count - 1;
    const std::uint32_t size = table_size_for(n * 2);
    std::memset(room->table, 0, sizeof(std::uint32_t) * size);
    for (std::uint32_t i = n; i-- > 0;) {
        const float* p = plg.points[i].pnt;
        room->next_same[i] = k_never;
        if (vec_has_nan(p)) continue;
        std::uint32_t slot = pt_hash(p) & (size - 1);
        while (room->table[slot] && !pts_same(plg.points[room->table[slot] - 1].pnt, p))
            slot = (slot + 1) & (size - 1);
        if (room->table[slot]) room->next_same[i] = room->table[slot] - 1;
        room->table[slot] = i + 1;
    }
}

// Copies the polygon of the frame into its slot. The segment before a point comes along, except
// before the first.
bool emit_piece(const plg_rec& from, const split_frame& frame, split_room* room)
{
    plg_cell** slot = &room->slots[frame.slot];
    if (!plg_list_push(slot)) return false;
    plg_rec* to = &(*slot)->plg;
    if (!plg_reserve(to, room->node_count - frame.base)) return false;
    for (std::uint32_t at = frame.base; at < room->node_count; ++at) {
        const std::uint32_t i = room->nodes[at];
        if (!plg_add_point(to, from.points[i])) return false;
        if (at > frame.base && !plg_add_seg(to, from.segs[i - 1].source)) return false;
    }
    return true;
}

// The first repeat of the node on top that lies at least two steps ahead.
std::uint32_t find_repeat(const split_frame& frame, const std::uint32_t* next_same)
{
    const std::uint32_t found = next_same[frame.same];
    return found == frame.ahead ? next_same[found] : found;
}

void step_ahead(split_frame* frame, split_room* room)
{
    room->nodes[room->node_count++] = frame->ahead;
    frame->same = frame->ahead++;
}

// The loop runs from the node on top to `repeat`. Its first node has no repeat inside of it, so its
// scan begins at the second.
void open_loop(std::uint32_t repeat, split_room* room)
{
    split_frame* outer = &room->frames[room->frame_count - 1];
    split_frame* loop = &room->frames[room->frame_count++];
    outer->slot = room->slot_count++;
    *loop = {room->node_count, 0, outer->ahead, repeat, room->slot_count++};
    room->slots[outer->slot] = room->slots[loop->slot] = nullptr;
    room->nodes[room->node_count] = room->nodes[room->node_count - 1];
    ++room->node_count;
    step_ahead(loop, room);
    outer->same = repeat;
    outer->ahead = repeat + 1;
}

bool close_frame(const plg_rec& plg, split_room* room)
{
    const split_frame& frame = room->frames[--room->frame_count];
    const bool was_cut = room->slot_count > 0;
    if (was_cut && !emit_piece(plg, frame, room)) return false;
    room->node_count = frame.base;
    return true;
}

// Fills the slots with all pieces of one polygon; no slots when there is nothing to split. Each
// place is scanned once: what a cut leaves before the place of the scan has no repeats, and what
// lies ahead is as yet uncut.
bool plg_split(const plg_rec& plg, split_room* room)
{
    room->slot_count = 0;
    if (plg.points.count < k_shortest_split) return true;
    link_same_points(plg, room);
    room->node_count = 0;
    room->frame_count = 1;
    room->frames[0] = {0, 0, 0, plg.points.count - 1, 0};
    step_ahead(&room->frames[0], room);
    while (room->frame_count > 0) {
        split_frame* frame = &room->frames[room->frame_count - 1];
        if (frame->ahead > frame->last) {
            if (!close_frame(plg, room)) return false;
            continue;
        }
        const std::uint32_t repeat = find_repeat(*frame, room->next_same);
        if (repeat < frame->last) {
            open_loop(repeat, room);
        } else {
            step_ahead(frame, room);
        }
    }
    return true;
}

void push_pieces(const split_room& room, piece_list* pieces)
{
    for (std::uint32_t i = 0; i < room.slot_count; ++i) {
        plg_cell* cell = room.slots[i];
        if (!cell) continue;
        cell->next = pieces->head;
        if (!pieces->head) pieces->end = &cell->next;
        pieces->head = cell;
    }
}

void drop_pieces(const split_room& room)
{
    for (std::uint32_t i = 0; i < room.slot_count; ++i)
        plg_list_free(&room.slots[i]);
}

std::uint32_t longest_plg(const plg_cell* cell)
{
    std::uint32_t longest = 0;
    for (; cell; cell = cell->next)
        if (cell->plg.points.count > longest) longest = cell->plg.points.count;
    return longest;
}

// Takes the cut polygons out of the list and gathers their pieces; false when memory ran out.
bool split_list(plg_cell** head, std::int32_t* count, split_room* room, piece_list* pieces)
{
    for (plg_cell** link = head; *link;) {
        if (!plg_split((*link)->plg, room)) {
            drop_pieces(*room);
            return false;
        }
        if (room->slot_count == 0) {
            link = &(*link)->next;
            continue;
        }
        plg_list_remove(link);
        push_pieces(*room, pieces);
        *count += static_cast<std::int32_t>(room->slot_count / 2);
    }
    return true;
}

} // namespace

bool plg_split_all(plg_cell** head, std::int32_t* count)
{
    const std::uint32_t longest = longest_plg(*head);
    if (longest < k_shortest_split) return true;
    split_room room;
    piece_list pieces = {nullptr, &pieces.head};
    const bool done = room_alloc(&room, longest) && split_list(head, count, &room, &pieces);
    room_free(&room);
    *pieces.end = *head;
    *head = pieces.head;
    return done;
}

} // namespace velmora
