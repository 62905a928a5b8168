#include "files/stl_ascii.h"

#include "files/stl_ascii_chars.h"
#include "files/stl_ascii_plain.h"
#include "files/stl_bytes.h"
#include "files/stl_number.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace velmora {

namespace {

constexpr int k_end_byte = 0xff; ///< as a signed character the same as "no more input"
constexpr std::uint32_t k_max_word = 95;
constexpr std::int64_t k_max_exponent = 1000000000000000; ///< larger ones are all the same

bool is_end(int c)
{
    return c == -1 || c == k_end_byte;
}

/// A word being read, in lower case. What does not fit is counted, so that it matches nothing.
struct word_text {
    std::uint32_t length;
    char text[k_max_word + 1];
};

} // namespace

// Characters --------------------------------------------------------------------------------------

static void set_line_end(stl_stream* s, bool ended)
{
    if (ended)
        s->flags |= stl_flag_line_end;
    else
        s->flags &= ~static_cast<std::uint32_t>(stl_flag_line_end);
}

static int next_char(stl_stream* s)
{
    int c = stl_guarded_byte(s);
    while (c == k_sub)
        c = stl_guarded_byte(s);
    set_line_end(s, c == '\n');
    return has_class(c, is_blank) ? ' ' : c;
}

static int next_nonblank(stl_stream* s)
{
    int c = next_char(s);
    while (c == ' ')
        c = next_char(s);
    return c;
}

// Reads on to the end of the line, unless the keyword in front ended it. `name` may be null. Only
// as the start of a token does the byte 0xff end the input; here it is one more odd character.
static void read_rest_of_line(stl_stream* s, char* name)
{
    std::uint32_t length = 0;
    while (!(s->flags & stl_flag_line_end)) {
        const int c = next_char(s);
        if (c == -1) break;
        const bool printable = c >= ' ' && c <= '~';
        const bool ended = (s->flags & stl_flag_line_end) != 0;
        if (name && printable && !ended && length < k_stl_header_size)
            name[length++] = static_cast<char>(c);
    }
    if (name) name[length] = '\0';
}

// Words -------------------------------------------------------------------------------------------

static void add_to_word(word_text* word, int c)
{
    if (word->length < k_max_word)
        word->text[word->length] = static_cast<char>(has_class(c, is_letter) ? c | 0x20 : c);
    ++word->length;
}

static bool word_is(const word_text& word, const char* text)
{
    return word.length == std::strlen(text) && std::memcmp(word.text, text, word.length) == 0;
}

// By their kind.
static constexpr const char* k_keywords[] = {"endfacet", "endloop", "endsolid", "facet", "loop",
                                             "normal",   "outer",   "solid",    "vertex"};

// The first letter leads to the first keyword that can match.
static int keyword_kind(const word_text& word)
{
    for (int kind = stl_tok_endfacet; kind <= stl_tok_vertex; ++kind) {
        if (k_keywords[kind][0] < word.text[0]) continue;
        if (k_keywords[kind][0] > word.text[0]) break;
        if (word_is(word, k_keywords[kind])) return kind;
    }
    return stl_tok_word;
}

static int scan_word(stl_stream* s, int c)
{
    word_text word;
    word.length = 0;
    word.text[0] = '\0';
    for (; has_class(c, in_word); c = next_char(s))
        add_to_word(&word, c);
    if (c == ' ' && word_is(word, "end")) {
        for (c = next_nonblank(s); has_class(c, in_word); c = next_char(s))
            add_to_word(&word, c);
    }
    stl_unread_byte(s, c);
    return keyword_kind(word);
}

// Numbers -----------------------------------------------------------------------------------------

static bool fail(stl_stream* s, stl_error_code code)
{
    s->error = code;
    return false;
}

static int scan_digits(stl_stream* s, stl_decimal* number)
{
    int c = next_char(s);
    for (; has_class(c, is_digit); c = next_char(s))
        decimal_add_digit(number, static_cast<char>(c));
    return c;
}

// Behind the letter: a sign, which is not optional, and digits; blanks may stand before either.
static bool scan_exponent(stl_stream* s, std::int64_t* exponent, int* delimiter)
{
    const int sign = next_nonblank(s);
    if (!has_class(sign, is_sign)) return fail(s, stl_err_number);
    int c = next_nonblank(s);
    if (!has_class(c, is_digit)) return fail(s, stl_err_number);
    std::int64_t value = 0;
    for (; has_class(c, is_digit); c = next_char(s))
        value = std::min(value * 10 + (c - '0'), k_max_exponent);
    *exponent = sign == '-' ? -value : value;
    *delimiter = c;
    return true;
}

// A number that began with its point may hold a second one, where the value ends but not the text.
static bool scan_number(stl_stream* s, int first, float* value)
{
    stl_decimal number;
    decimal_clear(&number);
    number.negative = first == '-';
    number.in_fraction = first == '.';
    if (has_class(first, is_digit)) decimal_add_digit(&number, static_cast<char>(first));

    int c = scan_digits(s, &number);
    if (c == '.') {
        number.ended = number.in_fraction;
        number.in_fraction = true;
        c = scan_digits(s, &number);
    }
    std::int64_t exponent = 0;
    if (number.in_fraction && is_exponent_letter(c) && !scan_exponent(s, &exponent, &c))
        return false;
    stl_unread_byte(s, c);

    if (!number.any_digit) s->error = stl_err_nan;
    *value = static_cast<float>(decimal_value(&number, number.ended ? 0 : exponent));
    return true;
}

// Tokens ------------------------------------------------------------------------------------------

bool stl_next_token(stl_stream* s, stl_token* token)
{
    const int c = next_nonblank(s);
    if (has_class(c, starts_number)) {
        token->kind = stl_tok_number;
        return scan_number(s, c, &token->number);
    }
    if (has_class(c, is_letter))
        token->kind = scan_word(s, c);
    else if (is_end(c))
        token->kind = stl_tok_end;
    else
        return fail(s, stl_err_character);
    return true;
}

static void end_solid(stl_stream* s)
{
    read_rest_of_line(s, nullptr);
    s->flags &= ~static_cast<std::uint32_t>(stl_flag_header_read);
    s->flags |= stl_flag_endsolid;
}

static bool expect(stl_stream* s, int kind, stl_token* token)
{
    if (!stl_next_token(s, token)) return false;
    if (token->kind == kind) return true;
    if (token->kind == stl_tok_end) return fail(s, stl_err_premature_end);
    if (kind != stl_tok_facet || token->kind != stl_tok_endsolid) return fail(s, stl_err_keyword);
    end_solid(s);
    return false;
}

static bool expect_word(stl_stream* s, stl_token_kind kind)
{
    stl_token token;
    return expect(s, kind, &token);
}

static bool expect_number(stl_stream* s, float* value)
{
    stl_token token = {};
    if (!expect(s, stl_tok_number, &token)) return false;
    *value = token.number;
    return true;
}

// From the buffer ---------------------------------------------------------------------------------
//
// Each of these takes what is due when it is all there in its usual spelling, and otherwise leaves
// all as it was. What ends the last word or number is left where it is, which is the same as
// reading it and putting it back.

static void take_until(stl_stream* s, const unsigned char* delimiter)
{
    const auto pos = static_cast<std::uint32_t>(delimiter - s->buffer);
    s->consumed += pos - s->pos;
    s->pos = pos;
    set_line_end(s, *delimiter == '\n');
}

// A blank that was put back is the first of those to be skipped. False when the buffer is not
// plain.
static bool drop_unread_blank(stl_stream* s)
{
    if (s->unget_count == 0) return stl_is_plain(s);
    if (s->unget_count > 1 || s->unget_buf[0] != ' ') return false;
    if (s->error != stl_err_none || s->progress_hook) return false;
    s->unget_count = 0;
    return true;
}

// When the buffer only ends too early, more is fetched behind what is left of it, and the line is
// looked at anew.
static bool take_line(stl_stream* s, const stl_plain_line& line, float* vec)
{
    if (!s->buffer || !drop_unread_blank(s)) return false;
    do {
        stl_plain_text text = {s->buffer + s->pos, s->buffer + s->fill};
        if (plain_line(&text, line, vec)) {
            take_until(s, text.at);
            return true;
        }
        if (text.at != text.end) return false;
    } while (stl_refill_behind(s));
    return false;
}

// Facets ------------------------------------------------------------------------------------------

constexpr stl_plain_line k_normal_line = {2, {stl_tok_facet, stl_tok_normal}, 3};
constexpr stl_plain_line k_first_corner = {3, {stl_tok_outer, stl_tok_loop, stl_tok_vertex}, 3};
constexpr stl_plain_line k_next_corner = {1, {stl_tok_vertex}, 3};
constexpr stl_plain_line k_facet_end = {2, {stl_tok_endloop, stl_tok_endfacet}, 0};
constexpr stl_plain_line k_number = {0, {}, 1};

// A line that is odd is so in one place: what is as usual is still taken from the buffer.
static bool read_line(stl_stream* s, const stl_plain_line& line, float* vec)
{
    if (take_line(s, line, vec)) return true;
    for (int i = 0; i < line.words; ++i) {
        const stl_plain_line word = {1, {line.keywords[i]}, 0};
        if (!take_line(s, word, nullptr) && !expect_word(s, line.keywords[i])) return false;
    }
    for (int i = 0; i < line.numbers; ++i)
        if (!take_line(s, k_number, &vec[i]) && !expect_number(s, &vec[i])) return false;
    return true;
}

bool stl_read_solid_line(stl_stream* s, char* id)
{
    if (!expect_word(s, stl_tok_solid)) return false;
    s->flags &= ~static_cast<std::uint32_t>(stl_flag_endsolid);
    read_rest_of_line(s, id);
    return true;
}

bool stl_read_facet(stl_stream* s, stl_tri* tri)
{
    return read_line(s, k_normal_line, tri->normal) && read_line(s, k_first_corner, tri->corner1) &&
           read_line(s, k_next_corner, tri->corner2) && read_line(s, k_next_corner, tri->corner3) &&
           read_line(s, k_facet_end, nullptr);
}

} // namespace velmora
