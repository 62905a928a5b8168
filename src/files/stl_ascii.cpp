#include "files/stl_ascii.h"

#include "files/stl_bytes.h"
#include "files/stl_number.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace velmora {

namespace {

constexpr int k_end_byte = 0xff;      ///< as a signed character the same as "no more input"
constexpr unsigned char k_sub = 0x1a; ///< Ctrl-Z, dropped wherever it stands
constexpr std::uint32_t k_max_word = 95;
constexpr std::int64_t k_max_exponent = 1000000000000000; ///< larger ones are all the same

enum char_class : std::uint8_t {
    is_blank = 1,
    is_digit = 2,
    is_letter = 4,
    is_point = 8,
    is_sign = 16,
    starts_number = is_digit | is_point | is_sign,
    in_word = is_letter | is_digit,
};

constexpr std::array<std::uint8_t, 256> make_classes()
{
    std::array<std::uint8_t, 256> classes{};
    for (const char c : {'\0', '\t', '\n', '\r', ' '})
        classes[static_cast<unsigned char>(c)] = is_blank;
    for (unsigned char c = '0'; c <= '9'; ++c)
        classes[c] = is_digit;
    for (unsigned char c = 'a'; c <= 'z'; ++c)
        classes[c] = is_letter;
    for (unsigned char c = 'A'; c <= 'Z'; ++c)
        classes[c] = is_letter;
    classes['.'] = is_point;
    classes['+'] = is_sign;
    classes['-'] = is_sign;
    return classes;
}

constexpr std::array<std::uint8_t, 256> k_classes = make_classes();

bool has_class(int c, std::uint8_t wanted)
{
    return c >= 0 && (k_classes[static_cast<unsigned char>(c)] & wanted) != 0;
}

bool is_end(int c)
{
    return c == -1 || c == k_end_byte;
}

bool is_exponent_letter(int c)
{
    return c == 'e' || c == 'E' || c == 'd' || c == 'D';
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

// Tokens from the buffer --------------------------------------------------------------------------
//
// Each of these takes a token whose delimiter lies in the buffer too, and otherwise leaves all as
// it was. The delimiter is left where it is, which is the same as reading it and putting it back.

static void take_until(stl_stream* s, const unsigned char* delimiter)
{
    const auto pos = static_cast<std::uint32_t>(delimiter - s->buffer);
    s->consumed += pos - s->pos;
    s->pos = pos;
    set_line_end(s, *delimiter == '\n');
}

static bool take_word(stl_stream* s, const unsigned char* at, const unsigned char* end, int* kind)
{
    word_text word;
    word.length = 0;
    word.text[0] = '\0';
    while (at < end && has_class(*at, in_word))
        add_to_word(&word, *at++);
    if (at == end || *at == k_sub || word_is(word, "end")) return false;
    take_until(s, at);
    *kind = keyword_kind(word);
    return true;
}

static const unsigned char* add_digits(const unsigned char* at, const unsigned char* end,
                                       std::uint64_t* mantissa)
{
    for (; at < end && has_class(*at, is_digit); ++at)
        *mantissa = *mantissa * 10 + static_cast<std::uint64_t>(*at - '0');
    return at;
}

// `at` stands on the letter. Null when the exponent is not of the plain kind.
static const unsigned char* take_exponent(const unsigned char* at, const unsigned char* end,
                                          std::int64_t* exponent)
{
    constexpr std::ptrdiff_t k_plain_digits = 4;
    if (end - at < 3 || !has_class(at[1], is_sign)) return nullptr;
    const unsigned char* const digits = at + 2;
    std::uint64_t value = 0;
    const unsigned char* const behind = add_digits(digits, end, &value);
    if (behind == digits || behind - digits > k_plain_digits) return nullptr;
    *exponent +=
        at[1] == '-' ? -static_cast<std::int64_t>(value) : static_cast<std::int64_t>(value);
    return behind;
}

static bool take_number(stl_stream* s, const unsigned char* at, const unsigned char* end,
                        float* value)
{
    constexpr std::ptrdiff_t k_digits_that_fit = 19;
    const unsigned char first = *at;
    if (has_class(first, is_sign)) ++at;
    const unsigned char* const whole = at;
    std::uint64_t mantissa = 0;
    at = add_digits(at, end, &mantissa);
    std::ptrdiff_t digits = at - whole;
    std::int64_t exponent = 0;
    if (at < end && *at == '.') {
        const unsigned char* const fraction = at + 1;
        at = add_digits(fraction, end, &mantissa);
        exponent = fraction - at;
        digits += at - fraction;
        if (at < end && is_exponent_letter(*at)) at = take_exponent(at, end, &exponent);
        if (!at || (at < end && *at == '.' && first == '.')) return false;
    }
    if (at == end || *at == k_sub || digits == 0 || digits > k_digits_that_fit) return false;
    double magnitude = 0.0;
    if (!decimal_short_cut(mantissa, exponent, &magnitude)) return false;
    take_until(s, at);
    *value = static_cast<float>(first == '-' ? -magnitude : magnitude);
    return true;
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

static const unsigned char* skip_blanks(const stl_stream* s)
{
    const unsigned char* at = s->buffer + s->pos;
    const unsigned char* const end = s->buffer + s->fill;
    while (at < end && has_class(*at, is_blank))
        ++at;
    return at;
}

// Most words are the keyword that is due, in small letters.
static bool take_keyword(stl_stream* s, int kind)
{
    if (!drop_unread_blank(s)) return false;
    const unsigned char* const at = skip_blanks(s);
    const std::size_t length = std::strlen(k_keywords[kind]);
    const auto left = static_cast<std::size_t>(s->buffer + s->fill - at);
    if (left <= length || std::memcmp(at, k_keywords[kind], length) != 0) return false;
    if (has_class(at[length], in_word) || at[length] == k_sub) return false;
    take_until(s, at + length);
    return true;
}

static bool take_token(stl_stream* s, stl_token* token)
{
    if (!drop_unread_blank(s)) return false;
    const unsigned char* const at = skip_blanks(s);
    const unsigned char* const end = s->buffer + s->fill;
    if (at == end) return false;
    if (has_class(*at, is_letter)) return take_word(s, at, end, &token->kind);
    if (!has_class(*at, starts_number)) return false;
    token->kind = stl_tok_number;
    return take_number(s, at, end, &token->number);
}

// Tokens ------------------------------------------------------------------------------------------

bool stl_next_token(stl_stream* s, stl_token* token)
{
    if (take_token(s, token)) return true;
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

static bool expect_word(stl_stream* s, int kind)
{
    stl_token token;
    return take_keyword(s, kind) || expect(s, kind, &token);
}

static bool expect_vec(stl_stream* s, float* vec)
{
    for (int i = 0; i < 3; ++i) {
        stl_token token;
        if (!expect(s, stl_tok_number, &token)) return false;
        vec[i] = token.number;
    }
    return true;
}

static bool expect_vertex(stl_stream* s, float* corner)
{
    return expect_word(s, stl_tok_vertex) && expect_vec(s, corner);
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
    return expect_word(s, stl_tok_facet) && expect_word(s, stl_tok_normal) &&
           expect_vec(s, tri->normal) && expect_word(s, stl_tok_outer) &&
           expect_word(s, stl_tok_loop) && expect_vertex(s, tri->corner1) &&
           expect_vertex(s, tri->corner2) && expect_vertex(s, tri->corner3) &&
           expect_word(s, stl_tok_endloop) && expect_word(s, stl_tok_endfacet);
}

} // namespace velmora
