#include "stl_roads.h"

#include "fuzz.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <string>

namespace velmora {

namespace {

constexpr float k_no_box[6] = {1e38f, -1e38f, 1e38f, -1e38f, 1e38f, -1e38f};
constexpr float k_filter[3] = {10.0f, 10.0f, 10.0f};

struct bytes_left {
    const std::uint8_t* at;
    std::size_t left;
    std::uint32_t pieces;
};

std::uint32_t next_piece(stl_stream* s)
{
    auto* source = static_cast<bytes_left*>(s->user_word);
    const std::size_t wanted = 1 + source->pieces++ * 7 % 61;
    const std::size_t size = std::min({wanted, source->left, std::size_t{s->buffer_size}});
    std::memcpy(s->buffer, source->at, size);
    source->at += size;
    source->left -= size;
    if (size == 0) s->state |= stl_state_end;
    return static_cast<std::uint32_t>(size);
}

int go_on(void*)
{
    return 1;
}

void set_word(stl_stream* s, int property, std::uint32_t value)
{
    demand(stl_set(s, property, &value) == 1, "a property");
}

stl_stream* open_stream(std::uint32_t format, std::uint32_t direction)
{
    stl_stream* s = stl_open();
    demand(s != nullptr, "a stream");
    set_word(s, stl_prop_format, format);
    set_word(s, stl_prop_direction, direction);
    return s;
}

void set_wish(stl_stream* s, const stl_wish& wish, float* bbox)
{
    set_word(s, stl_prop_keep_attr, wish.keep_attr);
    if (wish.skip_attr) stl_set(s, stl_prop_plain_attr, nullptr);
    if (!wish.filter) return;
    float limits[3];
    std::copy(k_filter, k_filter + 3, limits);
    stl_set(s, stl_prop_filter, limits);
    stl_set(s, stl_prop_bbox, bbox);
}

void drain(stl_stream* s, stl_reading_seen* seen)
{
    do {
        stl_tri tri = {};
        seen->results.push_back(stl_get_triangle(s, &tri));
        if (seen->results.back() != 0) seen->tris.push_back(tri);
    } while (seen->results.back() != 0);
    stl_get(s, stl_prop_error, &seen->error);
    stl_get(s, stl_prop_filtered, &seen->filtered);
    stl_get(s, stl_prop_id, seen->id);
    stl_tri more;
    if (seen->error != stl_err_none)
        demand(stl_get_triangle(s, &more) == 0, "reading on after a failure fails");
}

// Bytes, since a triangle has no padding and zeros are told apart.
bool same_tris(const std::vector<stl_tri>& a, const std::vector<stl_tri>& b)
{
    if (a.size() != b.size()) return false;
    return a.empty() || std::memcmp(a.data(), b.data(), sizeof(stl_tri) * a.size()) == 0;
}

void demand_same(const stl_reading_seen& a, const stl_reading_seen& b)
{
    demand(a.results == b.results, "the same results on each road");
    demand(same_tris(a.tris, b.tris), "the same triangles on each road");
    demand(a.error == b.error, "the same error on each road");
    demand(a.filtered == b.filtered, "the same number of filtered triangles on each road");
    demand(std::strcmp(a.id, b.id) == 0, "the same header text on each road");
    demand(std::memcmp(a.bbox, b.bbox, sizeof a.bbox) == 0, "the same box on each road");
}

std::string written(const std::vector<stl_tri>& tris, std::uint32_t format)
{
    const memory_file file(nullptr, 0);
    std::FILE* handle = file.open("wb");
    stl_stream* s = open_stream(format, stl_writing);
    stl_set(s, stl_prop_handle, handle);
    char id[] = "round trip";
    demand(stl_set(s, stl_prop_id, id) == 1, "a header text");
    for (const stl_tri& tri : tris)
        demand(stl_put_triangle(s, &tri) == 1, "a triangle to be written");
    demand(stl_close(s) == 1, "a finished file");
    std::fclose(handle);
    return file.bytes();
}

const std::uint8_t* bytes_of(const std::string& text)
{
    return reinterpret_cast<const std::uint8_t*>(text.data());
}

bool is_finite(const stl_tri& tri)
{
    const float* const vecs[] = {tri.normal, tri.corner1, tri.corner2, tri.corner3};
    for (const float* v : vecs)
        if (!std::isfinite(v[0]) || !std::isfinite(v[1]) || !std::isfinite(v[2])) return false;
    return true;
}

} // namespace

stl_reading_seen read_stl(const std::uint8_t* data, std::size_t size, const stl_wish& wish,
                          stl_road road)
{
    const memory_file file(data, size);
    std::FILE* handle = file.open("rb");
    bytes_left source = {data, size, 0};
    stl_reading_seen seen = {};
    std::copy(k_no_box, k_no_box + 6, seen.bbox);
    stl_stream* s = open_stream(wish.format, stl_reading);
    set_wish(s, wish, seen.bbox);
    if (road == stl_road::pieces) {
        s->io_hook = next_piece;
        stl_set(s, stl_prop_user_word, &source);
    } else {
        stl_set(s, stl_prop_handle, handle);
    }
    if (road == stl_road::counted)
        stl_set(s, stl_prop_progress_hook, reinterpret_cast<void*>(go_on));
    drain(s, &seen);
    stl_close(s);
    std::fclose(handle);
    return seen;
}

// Which form it is, is decided by the first block alone.
stl_reading_seen read_on_all_roads(const std::uint8_t* data, std::size_t size, const stl_wish& wish)
{
    stl_reading_seen seen = read_stl(data, size, wish, stl_road::blocks);
    demand_same(seen, read_stl(data, size, wish, stl_road::counted));
    if (wish.format != stl_format_detect)
        demand_same(seen, read_stl(data, size, wish, stl_road::pieces));
    return seen;
}

// Text has no infinities and rounds to six places, but what it has rounded it keeps.
void demand_round_trip(const std::vector<stl_tri>& tris, std::uint32_t format)
{
    const bool ascii = format == stl_format_ascii;
    std::vector<stl_tri> kept = tris;
    if (ascii)
        kept.erase(std::remove_if(kept.begin(), kept.end(), std::not_fn(is_finite)), kept.end());
    for (stl_tri& tri : kept)
        tri.attr = 0;
    const std::string file = written(kept, format);
    const stl_wish wish = {format, 0, false, false};
    const stl_reading_seen again = read_stl(bytes_of(file), file.size(), wish, stl_road::blocks);
    demand(kept.empty() || again.error == stl_err_none, "what was written can be read");
    demand(again.tris.size() == kept.size(), "all that was written comes back");
    if (ascii)
        demand(written(again.tris, format) == file, "the same text when it is written again");
    else
        demand(same_tris(again.tris, kept), "the same numbers when they are read again");
}

} // namespace velmora
