// What is taken from the buffer in one go must leave what a reader of single bytes would leave.
#include "files/stl_fixture.h"
#include "mesh/memory.h"

#include <random>

using namespace velmora;

/// Sets up both streams of a comparison alike.
struct read_options {
    std::uint32_t format;
    std::size_t block;
    bool keep_attr = false;
    bool plain_attr = true;
    std::size_t fails_at = ~0ull; ///< position of a read failure
};

static read_outcome read_blocks(const std::string& bytes, const read_options& options,
                                bool by_bytes)
{
    block_source source;
    source.bytes = bytes;
    source.block = options.block;
    source.fails_at = options.fails_at;
    stl_stream* s = open_hooked(&source, options.format, by_bytes);
    set_word(s, stl_prop_keep_attr, options.keep_attr);
    if (!options.plain_attr) stl_set(s, stl_prop_plain_attr, nullptr);
    read_outcome got = drain(s);
    const int one_more = stl_get_triangle(s, &got.tris.emplace_back());
    EXPECT_TRUE(one_more == 0 || got.error == stl_err_none) << "reading on after a failure";
    got.results.push_back(one_more);
    got.blocks = source.blocks;
    got.tris.pop_back();
    stl_close(s);
    return got;
}

static void expect_same(const std::string& bytes, const read_options& options)
{
    const read_outcome fast = read_blocks(bytes, options, false);
    const read_outcome slow = read_blocks(bytes, options, true);
    ASSERT_EQ(fast.results, slow.results) << bytes;
    ASSERT_EQ(fast.error, slow.error) << bytes;
    ASSERT_EQ(fast.tri_done, slow.tri_done) << bytes;
    ASSERT_EQ(fast.id, slow.id) << bytes;
    for (std::size_t i = 0; i < fast.tris.size(); ++i)
        ASSERT_EQ(std::memcmp(&fast.tris[i], &slow.tris[i], sizeof(stl_tri)), 0) << bytes;
    // Both ask for the same blocks; only behind the last one a reader of bytes may ask again.
    const std::size_t full = (bytes.size() + options.block - 1) / options.block;
    const auto capped = [full](int blocks) { return std::min<std::size_t>(full + 1, blocks); };
    ASSERT_EQ(capped(fast.blocks), capped(slow.blocks)) << bytes;
}

static std::string random_binary(std::mt19937& random)
{
    std::string bytes;
    for (auto solids = random() % 3 + 1; solids > 0; --solids) {
        const std::uint32_t count = static_cast<std::uint32_t>(random() % 8);
        bytes += binary_header(random() % 4 ? count : count + 1);
        for (std::uint32_t i = 0; i < count; ++i)
            bytes += binary_record(static_cast<float>(random() % 100), random() % 4);
    }
    if (random() % 3 == 0) bytes.resize(random() % (bytes.size() + 1));
    if (random() % 3 == 0 && bytes.size() > 200) {
        const std::size_t at = 84 + random() % 27 * 4 + random() % 3;
        bytes.replace(at, 4, "\xff\xff\xff\x7f");
    }
    return bytes;
}

TEST(stl_paths, binary_records_come_out_the_same)
{
    std::mt19937 random(3);
    for (int i = 0; i < 8000; ++i) {
        read_options options = {stl_format_binary, random() % 512 + 1};
        if (i % 4 == 0) options.block = random() % 8 + 1;
        options.keep_attr = random() % 2;
        options.plain_attr = random() % 2;
        expect_same(random_binary(random), options);
        if (HasFatalFailure()) return;
    }
}

static std::vector<std::string> parted(const std::string& list)
{
    std::vector<std::string> parts(1);
    for (const char c : list) {
        if (c == '|')
            parts.emplace_back();
        else
            parts.back() += c;
    }
    return parts;
}

static std::string random_number(std::mt19937& random)
{
    std::string text = random() % 2 ? "-" : "";
    for (auto digits = random() % 4; digits > 0; --digits)
        text += static_cast<char>('0' + random() % 10);
    text += '.';
    for (auto digits = random() % 4 ? 6 : random() % 20 + 1; digits > 0; --digits)
        text += static_cast<char>('0' + random() % 10);
    return text + (random() % 4 ? "" : "e-0" + std::to_string(random() % 40));
}

// A facet of words and numbers in all their spellings, sane often enough to get far.
static std::string random_facets(std::mt19937& random)
{
    // Lists of spellings, parted by bars.
    static const std::string blanks = " | | |\n|\r\n|\t |\n \n|\x1a ";
    static const std::string numbers =
        "0|1|-2.5|+.25|3.|1.5e+3|2.5D-02|7.e+01|1.0e +1|0.1234567890123456789|1.5e+99999|4.5e-30|"
        "18446744073709551617.0|1.5e+18446744073709551616|123456789012345678901.5|9007199254740993."
        "0|-0.0|1.\x1a|00000000000000000000000001.5|.5.5";
    static const std::string sentence = "facet|normal|#|#|#|outer|loop|vertex|#|#|#|Vertex|#|#|#|"
                                        "vERTEX|#|#|#|endloop|end facet";
    const auto one_of = [&random](const std::string& list) {
        const std::vector<std::string> all = parted(list);
        return all[random() % all.size()];
    };
    std::string text = std::string("solid") + (random() % 2 ? " name" : "") + one_of(blanks) + "\n";
    for (auto facets = random() % 4; facets > 0; --facets)
        for (const std::string& word : parted(sentence))
            text += (word != "#"    ? word
                     : random() % 4 ? random_number(random)
                                    : one_of(numbers)) +
                    one_of(blanks);
    return text + (random() % 4 ? "endsolid\n" : "End\nsolid rest\n");
}

static void spoil(std::string* text, std::mt19937& random)
{
    static const std::string odd = std::string("\0\x1a\xff\x80\n\r\t .+-0123456789eEdDnsx#", 30);
    for (auto changes = random() % 3; changes > 0 && !text->empty(); --changes) {
        const std::size_t at = random() % text->size();
        const std::string inserted(random() % 2, odd[random() % odd.size()]);
        text->replace(at, random() % 2, inserted);
    }
    if (random() % 8 == 0) text->resize(random() % (text->size() + 1));
}

TEST(stl_paths, text_comes_out_the_same)
{
    std::mt19937 random(4);
    for (int i = 0; i < 12000; ++i) {
        std::string text = random_facets(random);
        if (random() % 2) text += random_facets(random);
        if (random() % 2) spoil(&text, random);
        const std::size_t block = i % 4 == 0 ? random() % 16 + 1 : random() % 512 + 1;
        read_options options = {i % 8 ? stl_format_ascii : stl_format_detect, block};
        if (i % 16 == 1) options.fails_at = random() % (text.size() + 1);
        expect_same(text, options);
        if (HasFatalFailure()) return;
    }
}

static int blocks_asked(const std::string& text, std::size_t fails_at, bool by_bytes)
{
    block_source source;
    source.bytes = text;
    source.fails_at = fails_at;
    stl_stream* s = open_hooked(&source, stl_format_ascii, by_bytes);
    stl_tri tri;
    static_cast<void>(stl_get_triangle(s, &tri));
    stl_close(s);
    return source.blocks;
}

// A device can have an end, or fail, and go on with more: who asks once too often would find it.
TEST(stl_paths, a_block_that_does_not_come_is_not_asked_for_anew)
{
    const std::string text = "solid\n" + k_facet;
    for (std::size_t cut = 6; cut < text.size(); ++cut)
        EXPECT_EQ(blocks_asked(text, cut, false), blocks_asked(text, cut, true)) << cut;
}

TEST(stl_paths, rubbish_of_any_kind_ends)
{
    std::mt19937 random(5);
    for (int i = 0; i < 3000; ++i) {
        std::string bytes(random() % 2000, '\0');
        for (char& c : bytes)
            c = static_cast<char>(i % 2 ? random() : " \nsolidfacetend0.e+-"[random() % 20]);
        for (const std::uint32_t format : {stl_format_ascii, stl_format_binary, stl_format_detect})
            expect_same(bytes, {format, 512});
        if (HasFatalFailure()) return;
    }
}

TEST(stl_paths, memory_that_runs_out_ends_the_reading)
{
    const std::string text = "solid\n" + k_facet + "endsolid\n";
    for (std::uint64_t nth = 1; nth <= 3; ++nth) {
        for (const std::uint32_t format : {stl_format_ascii, stl_format_binary}) {
            heap_fail_nth(nth);
            testing::internal::CaptureStderr();
            std::FILE* file = file_with(
                format == stl_format_ascii ? text : binary_header(1) + binary_record(1.0f));
            stl_stream* s = stl_open();
            if (s) {
                stl_set(s, stl_prop_handle, file);
                s->format = format;
                const read_outcome got = drain(s);
                EXPECT_TRUE(got.tris.empty());
                EXPECT_EQ(got.error == stl_err_no_memory, nth == 3);
                stl_close(s);
            }
            EXPECT_EQ(s == nullptr, nth == 1);
            EXPECT_EQ(testing::internal::GetCapturedStderr(),
                      "mm_malloc: no more memory available\n");
            std::fclose(file);
        }
    }
    heap_fail_nth(0);
}
