#include "files/stl_ascii.h"
#include "files/stl_fixture.h"
#include "mesh/memory.h"

#include <cmath>

using namespace velmora;

static read_outcome read_text(const std::string& text)
{
    return read_file(text, stl_format_ascii);
}

TEST(stl_ascii, endings)
{
    const std::string solid = "solid a b\n" + k_facet;
    const std::vector<ending> endings = {
        {"clean", solid + "endsolid\n", 1, stl_err_none},
        {"name behind the end", solid + "endsolid solid facet\n", 1, stl_err_none},
        {"no line end", solid + "endsolid", 1, stl_err_none},
        {"apart, over two lines", solid + "END\r\nSolid a b", 1, stl_err_none},
        {"Ctrl-Z behind the end", solid + "endsolid\n\x1a", 1, stl_err_none},
        {"nothing", "", 0, stl_err_premature_end},
        {"end line missing", solid, 1, stl_err_premature_end},
        {"cut in a facet", solid + "facet normal 0 0", 1, stl_err_premature_end},
        {"cut behind an exponent letter", solid + "facet normal 1.0e", 1, stl_err_number},
        {"garbage behind the end", solid + "endsolid\nx", 1, stl_err_keyword},
        {"words in other places", solid + "facet outer", 1, stl_err_keyword},
        {"endsolid inside a facet", solid + "facet endsolid", 1, stl_err_keyword},
        {"a number for a word", solid + "1", 1, stl_err_keyword},
        {"a word for a number", solid + "facet normal x", 1, stl_err_keyword},
        {"an odd character", solid + "facet normal #", 1, stl_err_character},
        {"a letter above 127", solid + "f\xc3\xa4", 1, stl_err_keyword},
        {"0xFF is the end", solid + "\xff" + k_facet, 1, stl_err_premature_end},
        {"0xFF ends a clean file", solid + "endsolid\n\xff rubbish", 1, stl_err_none},
        {"a sign alone", solid + "facet normal - 0 0", 1, stl_err_premature_end},
        {"a sign alone at the end", solid + "facet normal -", 1, stl_err_premature_end},
        {"not STL at all", std::string("\177ELF\0\0\0", 7), 0, stl_err_character},
    };
    expect_endings(stl_format_ascii, endings);
}

TEST(stl_ascii, case_blanks_and_breaks_mean_nothing)
{
    const std::string text = "SOLID n\r\nFacet\tNormal 0\n0\n1 OUTER LOOP\nVERTEX 1 2 3 "
                             "ver\032tex 4 5\0325 6 vErTeX 7-8+9" +
                             std::string(1, '\0') + "end\n\nloop END FACET end    solid\n";
    const read_outcome got = read_text(text);
    ASSERT_EQ(got.tris.size(), 1u);
    EXPECT_EQ(got.error, stl_err_none);
    EXPECT_EQ(got.tris[0].corner2[1], 55.0f);
    EXPECT_EQ(got.tris[0].corner3[1], -8.0f);
    EXPECT_EQ(got.tris[0].corner3[2], 9.0f);
}

TEST(stl_ascii, solids_follow_each_other)
{
    const std::string a = "solid a\n" + repeated(k_facet, 2) + "endsolid\n";
    const std::string b = "solid b\n" + k_facet + "end solid b\n";
    const read_outcome got = read_text(a + b + "solid\nfacet");
    EXPECT_EQ(got.results, (std::vector<int>{1, 1, 2, 0}));
    EXPECT_EQ(read_text(a + b + a).results, (std::vector<int>{1, 1, 2, 2, 1, 0}));
    EXPECT_EQ(read_text(a + b).id, " b");
}

TEST(stl_ascii, an_empty_further_solid_ends_the_reading_and_is_counted)
{
    const std::string empty = "solid\nendsolid\n";
    const std::string full = "solid\n" + k_facet + "endsolid\n";
    const read_outcome got = read_text(full + empty + full);
    EXPECT_EQ(got.results, (std::vector<int>{1, 0}));
    EXPECT_EQ(got.error, stl_err_none);
    EXPECT_EQ(got.tri_done, 1u);
    EXPECT_EQ(read_text(empty + full).results, (std::vector<int>{2, 0}));
    EXPECT_EQ(read_text(empty + empty + full).results, (std::vector<int>{0}));
}

TEST(stl_ascii, the_name_keeps_eighty_printable_characters)
{
    const std::string end = "\n" + k_facet + "endsolid";
    EXPECT_EQ(read_text("solid" + end).id, "");
    EXPECT_EQ(read_text("solid a\tb\x01\351c\r" + end).id, " a bc ");
    EXPECT_EQ(read_text("solid " + std::string(200, 'x') + end).id, " " + std::string(79, 'x'));
}

struct number_case {
    const char* text;
    std::uint32_t error; ///< pending or fatal
    double value;
};

TEST(stl_ascii, numbers)
{
    const number_case cases[] = {
        {"12", 0, 12.0},
        {"+.5", 0, 0.5},
        {"-5.", 0, -5.0},
        {"1.5D+3", 0, 1500.0},
        {"1.5d \n + 0003", 0, 1500.0},
        {"2.5e-1x", 0, 0.25},
        {"15e+2", 0, 15.0},
        {"0x10", 0, 0.0},
        {"1.5.5", 0, 1.5},
        {".5.7e+3", 0, 0.5},
        {"1.0e+999999999999999999999", 0, HUGE_VAL},
        {"1.0e-999999999999999999999", 0, 0.0},
        {"1.5E3", stl_err_number, 0.0},
        {"1.5E+", stl_err_number, 0.0},
        {"1.5E+-3", stl_err_number, 0.0},
        {"-", stl_err_nan, 0.0},
        {"..5", stl_err_nan, 0.0},
        {"+.e+5", stl_err_nan, 0.0},
    };
    for (const number_case& c : cases) {
        SCOPED_TRACE(c.text);
        for (const bool by_bytes : {false, true}) {
            block_source source;
            source.bytes = std::string(c.text) + " ";
            stl_stream* s = open_hooked(&source, stl_format_ascii, by_bytes);
            stl_token token = {};
            EXPECT_EQ(stl_next_token(s, &token), c.error != stl_err_number);
            EXPECT_EQ(s->error, c.error);
            EXPECT_EQ(token.number, static_cast<float>(c.value));
            stl_close(s);
        }
    }
}

TEST(stl_ascii, long_tokens_take_no_memory)
{
    const std::string many(3000000, '7');
    heap_fail_nth(0);
    EXPECT_EQ(read_text("solid\n" + many).error, stl_err_keyword);
    EXPECT_EQ(read_text("solid " + many).error, stl_err_premature_end);
    EXPECT_EQ(read_text("solid\n" + std::string(3000000, 'f')).error, stl_err_keyword);
    EXPECT_EQ(read_text("solid\nfacet" + std::string(95, 'x') + " normal").error, stl_err_keyword);
    const std::string head = "solid\nfacet normal 0." + std::string(3000000, '0');
    const std::string rest = k_facet.substr(std::strlen("facet normal 0"));
    const read_outcome got = read_text(head + many + "e+3000001" + rest);
    ASSERT_EQ(got.tris.size(), 1u);
    EXPECT_EQ(got.tris[0].normal[0], static_cast<float>(70.0 / 9.0));
    EXPECT_LE(heap_calls(), 15u) << "a stream, a block and a name each";
}

TEST(stl_ascii, a_failed_read_looks_like_the_end)
{
    block_source source;
    source.bytes = "solid\n" + repeated(k_facet, 9);
    source.fails_at = 6 + 5 * k_facet.size();
    stl_stream* s = open_hooked(&source, stl_format_ascii, false);
    EXPECT_EQ(drain(s).error, stl_err_premature_end);
    stl_close(s);
}
