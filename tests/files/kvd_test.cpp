// The bytes of these files are put together by hand, so that reader and writer cannot agree on a
// wrong layout.
#include "files/kvd.h"
#include "mesh/box.h"
#include "mesh/cell_tree.h"
#include "mesh/measure.h"
#include "mesh/vec.h"
#include "mesh_fixture.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <set>
#include <unistd.h>

using namespace velmora;

using words = std::vector<std::uint32_t>;

static constexpr std::uint32_t k_none = 0xFFFFFFFFu;

static std::string bytes_of(const words& values)
{
    std::string bytes;
    for (const std::uint32_t v : values)
        for (int shift = 0; shift < 32; shift += 8)
            bytes += static_cast<char>(v >> shift);
    return bytes;
}

static std::string header(std::uint32_t id, std::size_t size, std::size_t kind, std::size_t count)
{
    words values = {id, static_cast<std::uint32_t>(size), static_cast<std::uint32_t>(kind),
                    static_cast<std::uint32_t>(count)};
    values.resize(25);
    return bytes_of(values);
}

static std::string vtx(float x, float y, float z)
{
    return bytes_of({std::bit_cast<std::uint32_t>(x), std::bit_cast<std::uint32_t>(y),
                     std::bit_cast<std::uint32_t>(z)});
}

/// A triangle record by its fields; 1132396544 is 255.0f.
struct tr_fields {
    std::array<std::uint32_t, 3> vtx;
    std::array<std::uint32_t, 3> nbr = {k_none, k_none, k_none};
    std::uint64_t flags = 0;
    std::uint32_t id = 0;
    std::uint32_t key = k_none;
    std::uint32_t group = 0;
    std::array<std::uint32_t, 3> corner_val = {1132396544u, 1132396544u, 1132396544u};
    std::string extra = std::string(24, '\0');
};

static std::string tr(const tr_fields& f)
{
    return bytes_of({f.id, f.vtx[0], f.vtx[1], f.vtx[2], f.nbr[0], f.nbr[1], f.nbr[2], f.key}) +
           f.extra +
           bytes_of({f.corner_val[0], f.corner_val[1], f.corner_val[2], f.group,
                     static_cast<std::uint32_t>(f.flags),
                     static_cast<std::uint32_t>(f.flags >> 32)});
}

// All records of a section must have one length.
static std::string section(std::uint32_t id, const std::vector<std::string>& records,
                           std::size_t size)
{
    std::string bytes = header(id, size * records.size() + 100, size, records.size());
    for (const std::string& r : records)
        bytes += r;
    return bytes;
}

static std::string model(const std::vector<std::string>& vtxs, const std::vector<std::string>& trs)
{
    const std::size_t vtx_size = vtxs.empty() ? 12 : vtxs[0].size();
    const std::size_t tr_size = trs.empty() ? 80 : trs[0].size();
    return header(333, vtx_size * vtxs.size() + tr_size * trs.size() + 300, 1, 1) +
           section(444, vtxs, vtx_size) + section(555, trs, tr_size);
}

static const std::vector<std::string> k_square = {vtx(0, 0, 0), vtx(1, 0, 0), vtx(0, 1, 0),
                                                  vtx(1, 1, 0)};

// Two triangles that answer each other.
static std::string square()
{
    return model(k_square,
                 {tr({{0, 1, 2}, {k_none, 1, k_none}}), tr({{2, 1, 3}, {0, k_none, k_none}})});
}

static const std::string k_scratch = testing::TempDir() + "velmora_kvd_" + std::to_string(getpid());

static void write_scratch(const std::string& bytes)
{
    std::ofstream(k_scratch, std::ios::binary) << bytes;
}

static std::string take_scratch()
{
    std::ifstream in(k_scratch, std::ios::binary);
    std::remove(k_scratch.c_str());
    return {std::istreambuf_iterator<char>(in), {}};
}

template <class rec_t> static std::uint32_t slots_in_use(const pool<rec_t>& p)
{
    std::uint32_t n = p.used ? p.used - 1 : 0;
    for (std::uint32_t i = p.free_head; i != 0; --n)
        std::memcpy(&i, &pool_at(p, handle<rec_t>{i}), sizeof i);
    return n;
}

enum source_kind {
    from_file,
    from_pipe, ///< whose size nobody knows; short files only
};

/// One reading and what it left.
struct reading {
    obj_list list = {};
    std::uint32_t count = 0;
    aabb bbox = {};
    std::int32_t err = err_none;
    mesh_ctx ctx = {};
    stage_result result = stage_failed;

    explicit reading(const std::string& bytes, source_kind source = from_file)
    {
        mesh_ctx_init(&ctx, nullptr);
        if (source == from_file) {
            write_scratch(bytes);
            result = kvd_read_model(k_scratch.c_str(), &list, &count, &bbox, &err, &ctx);
            std::remove(k_scratch.c_str());
            return;
        }
        int ends[2];
        if (pipe(ends) != 0) return;
        EXPECT_EQ(write(ends[1], bytes.data(), bytes.size()), static_cast<long>(bytes.size()));
        close(ends[1]);
        const std::string path = "/dev/fd/" + std::to_string(ends[0]);
        result = kvd_read_model(path.c_str(), &list, &count, &bbox, &err, &ctx);
        close(ends[0]);
    }
    ~reading()
    {
        list_free(&list);
        mesh_records_free();
    }
    reading(const reading&) = delete;
    reading& operator=(const reading&) = delete;

    /// In the order of the file, where one model was read.
    tr_h tr(std::uint32_t place) const
    {
        return rec(list_at(list, list.count - 1 - place)).tr;
    }

    /// Counts agree with holders, and nothing lives that is not on the list.
    bool is_exact() const
    {
        const obj_list* lists[] = {&list};
        std::set<std::uint32_t> corners;
        for (const obj_h o : list)
            for (const vtx_h v : rec(rec(o).tr).vtx)
                corners.insert(v.i);
        return count == list.count && audit_counts(&ctx, lists, 1, stderr) == 0 &&
               slots_in_use(tr_pool) == count && slots_in_use(vtx_pool) == corners.size();
    }

    std::string written(bool flip = false, bool no_nbrs = false) const
    {
        EXPECT_EQ(kvd_write_model(list, k_scratch.c_str(), flip, no_nbrs), stage_ok);
        return take_scratch();
    }
};

static tr_fields rich_fields()
{
    tr_fields f = {{0, 1, 2}, {k_none, 1, k_none}};
    f.id = 0x01020304;
    f.key = 7;
    f.group = 0xFFFFFFFE;
    f.corner_val = {0x7F800001, 0xFFC00002, 0x80000000}; // a signalling NaN, a quiet one, -0.0
    f.extra = "corner_0corner_1corner_2";
    f.flags = ~0ull & ~static_cast<std::uint64_t>(tr_no_nrm);
    return f;
}

TEST(kvd, all_that_a_file_brings_comes_back)
{
    tr_fields second = {{2, 1, 3}, {0, k_none, k_none}};
    second.flags = tr_nrm_done | tr_loaded;
    second.id = 9;
    const reading first(model(k_square, {tr(rich_fields()), tr(second)}));
    ASSERT_EQ(first.result, stage_ok);
    EXPECT_TRUE(first.is_exact());
    EXPECT_EQ(rec(first.tr(0)).vtx[1], rec(first.tr(1)).vtx[1]);
    EXPECT_EQ(rec(first.tr(0)).nbr[1], first.tr(1));
    EXPECT_EQ(rec(first.tr(1)).nbr[0], first.tr(0));
    EXPECT_EQ(rec(rec(first.tr(0)).vtx[1]).refs, 2);
    EXPECT_FALSE(links_may_dangle);

    // The list is turned round by reading; so are the places of the links, and the vertices go by
    // first use.
    tr_fields front = second;
    front.vtx = {0, 1, 2};
    front.nbr = {1, k_none, k_none};
    tr_fields back = rich_fields();
    back.vtx = {3, 1, 0};
    back.nbr = {k_none, 0, k_none};
    EXPECT_EQ(first.written(),
              model({k_square[2], k_square[1], k_square[3], k_square[0]}, {tr(front), tr(back)}));
}

TEST(kvd, writing_can_turn_triangles_and_leave_links_out)
{
    const reading r(model(k_square, {tr(rich_fields()), tr({{2, 1, 3}, {0, k_none, k_none}})}));
    tr_fields front = {{0, 1, 2}, {k_none, k_none, 1}};
    front.flags = tr_nrm_done | tr_loaded;
    tr_fields back = rich_fields();
    back.vtx = {3, 0, 2};
    back.nbr = {k_none, 0, k_none};
    std::swap(back.corner_val[1], back.corner_val[2]);
    back.extra = "corner_0corner_2corner_1";
    const std::vector<std::string> vtxs = {k_square[2], k_square[3], k_square[1], k_square[0]};
    EXPECT_EQ(r.written(true, false), model(vtxs, {tr(front), tr(back)}));
    front.nbr = back.nbr = {k_none, k_none, k_none};
    EXPECT_EQ(r.written(true, true), model(vtxs, {tr(front), tr(back)}));
}

TEST(kvd, writing_appends)
{
    const reading r(square());
    const std::string one = r.written();
    write_scratch("before");
    EXPECT_EQ(r.written(), "before" + one);
    EXPECT_EQ(kvd_write_model(r.list, "/dev/full", false, false), stage_failed);
    EXPECT_EQ(kvd_write_model(r.list, "/no/such/place", false, false), stage_failed);
}

TEST(kvd, plain_triangles_are_written_with_the_values_of_new_ones)
{
    mesh_fixture m("a 0 0 0  b 1 0 0  c 0 1 0", "abc");
    obj_list list = {};
    ASSERT_TRUE(list_push(&list, m.obj("abc")));
    ASSERT_EQ(kvd_write_model(list, k_scratch.c_str(), false, false), stage_ok);
    tr_fields plain = {{0, 1, 2}};
    plain.id = 1;
    plain.flags = tr_loaded;
    plain.corner_val = {0x477FFF00, 0x477FFF00, 0x477FFF00}; // 65535.0f
    EXPECT_EQ(take_scratch(), model({k_square[0], k_square[1], k_square[2]}, {tr(plain)}));
    list_free(&list);
}

TEST(kvd, short_records_end_with_the_defaults)
{
    const auto first_half_of_x = [](const std::string& v) { return v.substr(0, 2); };
    const reading r(
        model(k_square, {tr(rich_fields()).substr(0, 36), tr({{2, 1, 3}}).substr(0, 36)}) +
        model({first_half_of_x(vtx(1.00390625f, 1, 1))}, {tr({{0, 0, 0}}).substr(0, 16)}));
    ASSERT_EQ(r.result, stage_ok);
    ASSERT_EQ(r.count, 3u);
    EXPECT_TRUE(r.is_exact());

    const tr_cold& cut_in_extra = cold(rec(list_at(r.list, 2)).tr);
    EXPECT_EQ(cut_in_extra.extra.key, 7u);
    EXPECT_EQ(std::memcmp(cut_in_extra.extra.values, "corn\0\0\0\0\0\0\0\0", 12), 0);
    EXPECT_EQ(cut_in_extra.corner_val[2], 255.0f);
    EXPECT_EQ(cut_in_extra.group, 0u);
    const tr_h corners_alone = rec(list_at(r.list, 0)).tr;
    EXPECT_EQ(cold(corners_alone).extra.key, k_no_extra);
    const float x = corner_pos(rec(corners_alone), 0)[0];
    EXPECT_EQ(std::bit_cast<std::uint32_t>(x), 0x8000u) << "the lower half of the number";
}

TEST(kvd, longer_records_are_read_whole)
{
    std::vector<std::string> vtxs = k_square;
    for (std::string& v : vtxs)
        v += std::string(5000, 'v');
    const std::string t = tr({{2, 1, 3}}) + "more";
    const reading r(model(vtxs, {t, t}) + square());
    ASSERT_EQ(r.result, stage_ok);
    EXPECT_EQ(r.count, 4u);
    EXPECT_EQ(corner_pos(rec(rec(list_at(r.list, 2)).tr), 2)[1], 1.0f);
}

struct file_case {
    const char* name;
    stage_result result;
    std::uint32_t count; ///< triangles on the list
    std::string bytes;
};

static const std::vector<std::string> k_many_vtxs(2100, vtx(1, 1, 1));
static const std::string k_model_header = header(333, 0, 1, 1);
static const std::string k_vtxs = section(444, k_square, 12);

static std::string with_tr(const tr_fields& f)
{
    return model(k_square, {tr({{0, 1, 2}}), tr(f)});
}

static const file_case file_cases[] = {
    {"nothing", stage_ok, 0, ""},
    {"two models", stage_ok, 4, square() + square()},
    {"many records", stage_ok, 1, model(k_many_vtxs, {tr({{0, 1, 2099}})})},
    {"a foreign block", stage_ok, 4, square() + header(1, 110, 2, 9) + "ten bytes." + square()},
    {"a foreign block without a body", stage_ok, 2, header(1, 100, 2, 0) + square()},
    {"a bare header", stage_ok, 2, header(0, 0xFFFFFFFF, 3, 0xFFFFFFFF) + square()},
    {"a model without records", stage_ok, 2, model({}, {}) + square()},
    {"points that no triangle uses", stage_ok, 0, model(k_square, {})},
    {"no records of no size", stage_ok, 0,
     k_model_header + section(444, {}, 0) + section(5, {}, 0)},
    {"sizes of sections are not looked at", stage_ok, 1,
     header(0, 0, 1, 0) + header(0, 0, 12, 1) + vtx(0, 0, 0) + header(0, 1, 80, 1) + tr({})},

    {"a vertex behind the section", stage_failed, 0, with_tr({{0, 1, 4}})},
    {"a corner without a vertex", stage_failed, 0, with_tr({{k_none, 1, 2}})},
    {"a corner, but no vertices", stage_failed, 0, model({}, {tr({{0, 0, 0}})})},
    {"too short for corners", stage_failed, 0, model(k_square, {tr({{0, 1, 2}}).substr(0, 8)})},
    {"a foreign block below its header", stage_failed, 0,
     header(1, 99, 2, 0) + std::string(200, '\3')},
    {"a cut foreign block", stage_failed, 0, header(1, 0xFFFFFFFF, 2, 0) + square()},
    {"vertices of no size", stage_failed, 0,
     k_model_header + header(444, 100, 0, 4) + section(555, {tr({{0, 1, 2}})}, 80)},
    {"triangles of no size", stage_failed, 0,
     k_model_header + k_vtxs + header(555, 100, 0, 4) + square()},
    {"more vertices than any file has", stage_failed, 0,
     k_model_header + header(444, 0, 12, k_none) + square()},
    {"more triangles than any file has", stage_failed, 0,
     k_model_header + k_vtxs + header(555, 0, 80, k_none) + tr({{0, 1, 2}})},
    {"a fault in the second model", stage_failed, 2, square() + with_tr({{9, 9, 9}}) + square()},
    {"rubbish behind the model", stage_failed, 2, square() + "\r\n"},
};

TEST(kvd, wrong_files_fail_and_leave_the_models_before)
{
    for (const file_case& c : file_cases) {
        for (const source_kind source : {from_file, from_pipe}) {
            SCOPED_TRACE(c.name);
            const reading r(c.bytes, source);
            EXPECT_EQ(r.result, c.result);
            EXPECT_EQ(r.err, err_none);
            EXPECT_EQ(r.count, c.count);
            EXPECT_TRUE(r.is_exact());
        }
    }
    reading r("");
    for (const char* path : {"/no/such/file", "/"})
        EXPECT_EQ(kvd_read_model(path, &r.list, &r.count, &r.bbox, &r.err, &r.ctx), stage_failed);
}

TEST(kvd, nothing_is_made_for_records_that_cannot_come)
{
    heap_fail_nth(0);
    const reading r(header(333, 0, 1, 1) + header(444, 0, 1, 101) + std::string(100, '\0'));
    EXPECT_EQ(heap_calls(), 1u) << "the buffer";
}

TEST(kvd, a_file_may_end_only_between_its_blocks)
{
    const std::string foreign = header(1, 110, 2, 0) + "ten bytes.";
    const std::string whole = square() + foreign + square();
    const std::set<std::size_t> ends = {0, square().size(), square().size() + foreign.size(),
                                        whole.size()};
    std::set<std::size_t> lengths = ends;
    for (const std::size_t end : ends)
        lengths.insert({end - std::min<std::size_t>(end, 1), std::min(end + 1, whole.size())});
    for (std::size_t length = 0; length < whole.size(); length += 37)
        lengths.insert(length);
    for (const std::size_t length : lengths) {
        const reading r(whole.substr(0, length), length % 2 ? from_file : from_pipe);
        ASSERT_EQ(r.result == stage_ok, ends.count(length) != 0) << length;
        ASSERT_EQ(r.count, length < square().size() ? 0u : length < whole.size() ? 2u : 4u);
        ASSERT_TRUE(r.is_exact()) << length;
    }
}

struct link_case {
    const char* name;
    std::array<std::uint32_t, 3> a, b; ///< neighbour indices of both triangles of the square
    const char* links;                 ///< what becomes of them; "-" none
    bool dangle;
};

static const link_case link_cases[] = {
    {"none", {k_none, k_none, k_none}, {0x80000000u, k_none, k_none}, "--- ---", false},
    {"the count itself", {2, k_none, k_none}, {k_none, k_none, k_none}, "--- ---", false},
    {"beyond", {3, 0x7FFFFFFF, k_none}, {k_none, k_none, k_none}, "--- ---", false},
    {"answered", {k_none, 1, k_none}, {0, k_none, k_none}, "-b- a--", false},
    {"not answered", {k_none, 1, k_none}, {k_none, k_none, k_none}, "-b- ---", true},
    {"answered across another edge", {1, k_none, k_none}, {0, k_none, k_none}, "b-- a--", true},
    {"itself", {0, k_none, k_none}, {k_none, k_none, k_none}, "a-- ---", true},
    {"answered once of twice", {1, 1, k_none}, {0, k_none, k_none}, "bb- a--", true},
};

TEST(kvd, links_are_taken_as_they_are)
{
    for (const link_case& c : link_cases) {
        SCOPED_TRACE(c.name);
        const reading r(model(k_square, {tr({{0, 1, 2}, c.a}), tr({{2, 1, 3}, c.b})}));
        ASSERT_EQ(r.result, stage_ok);
        std::string links;
        for (std::uint32_t t = 0; t < 2; ++t) {
            for (const tr_h n : rec(r.tr(t)).nbr)
                links += !n ? '-' : n == r.tr(0) ? 'a' : n == r.tr(1) ? 'b' : '?';
            if (t == 0) links += ' ';
        }
        EXPECT_EQ(links, c.links);
        EXPECT_EQ(links_may_dangle, c.dangle);
    }
}

TEST(kvd, normals_are_computed_anew)
{
    struct {
        const char* name;
        std::vector<std::string> vtxs;
        float z;
        std::uint64_t marks; ///< of tr_nrm_done and tr_no_nrm
    } const cases[] = {
        {"small parts vanish", {vtx(0, 0, 0), vtx(1, 0, 5e-7f), vtx(0, 1, 0)}, 1, tr_nrm_done},
        {"one place", std::vector(3, vtx(1, 1, 1)), 0, tr_nrm_done | tr_no_nrm},
        {"short edges", {vtx(0, 0, 0), vtx(1e-7f, 0, 0), vtx(0, 1e-7f, 0)}, 1, tr_nrm_done},
    };
    for (const auto& c : cases) {
        for (const std::uint64_t marks : {std::uint64_t{0}, std::uint64_t{tr_no_nrm}}) {
            SCOPED_TRACE(c.name);
            tr_fields f = {{0, 1, 2}};
            f.flags = marks | tr_dup;
            const reading r(model(c.vtxs, {tr(f)}));
            ASSERT_EQ(r.result, stage_ok);
            const float nrm[3] = {0, 0, c.z};
            EXPECT_TRUE(pts_same(rec(r.tr(0)).nrm, nrm));
            EXPECT_EQ(rec(r.tr(0)).flags, c.marks | tr_dup | tr_loaded);
        }
    }
}

TEST(kvd, boxes_have_the_merge_tolerance_as_margin)
{
    merge_tol = 0.25f;
    const reading r(square() +
                    model({vtx(NAN, NAN, NAN), vtx(2, -1, 0)}, {tr({{0, 0, 0}}), tr({{0, 0, 1}})}));
    merge_tol = k_default_merge_tol;
    const aabb model_box = {{-0.5f, -1.5f, -0.5f}, {2.5f, 1.5f, 0.5f}};
    const aabb last_box = {{1.75f, -1.25f, -0.25f}, {2.25f, -0.75f, 0.25f}};
    EXPECT_EQ(std::memcmp(&r.bbox, &model_box, sizeof model_box), 0);
    EXPECT_EQ(std::memcmp(&rec(list_at(r.list, 0)).box, &last_box, sizeof last_box), 0);
}

TEST(kvd, without_a_model_there_is_no_box)
{
    EXPECT_EQ(reading(model({}, {})).bbox.min[0], k_empty_box);
    EXPECT_EQ(reading("").bbox.min[0], 0.0f) << "left alone";
}

TEST(kvd, running_out_of_memory_leaves_nothing_behind)
{
    const std::string bytes = model(k_square, std::vector(10, tr(rich_fields()))) + square();
    bool done = false;
    for (std::uint64_t nth = 1; !done; ++nth) {
        for (const source_kind source : {from_file, from_pipe}) {
            heap_fail_nth(nth);
            reading r(bytes, source);
            heap_fail_nth(0);
            done = r.result == stage_ok;
            EXPECT_TRUE(r.err == err_none || r.err == err_no_memory);
            EXPECT_TRUE(r.is_exact()) << nth;
        }
        ASSERT_LT(nth, 100u);
    }
    const reading r(bytes);
    for (std::uint64_t nth = 1; nth <= 3; ++nth) {
        heap_fail_nth(nth);
        EXPECT_EQ(kvd_write_model(r.list, k_scratch.c_str(), false, false), stage_failed);
    }
    heap_fail_nth(0);
}
