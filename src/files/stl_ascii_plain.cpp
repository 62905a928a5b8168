#include "files/stl_ascii_plain.h"

#include "files/stl_ascii_chars.h"
#include "files/stl_number.h"

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>

namespace velmora {

namespace {

using eight_bytes = std::array<unsigned char, 8>;

/// A keyword as a processor compares it: eight bytes at a time, of which `mask` counts.
struct keyword_bytes {
    std::uint64_t text;
    std::uint64_t mask;
    std::size_t length;
};

constexpr keyword_bytes make_keyword(const char* text)
{
    eight_bytes letters{};
    eight_bytes mask{};
    std::size_t length = 0;
    for (; text[length] != '\0'; ++length) {
        letters[length] = static_cast<unsigned char>(text[length]);
        mask[length] = 0xff;
    }
    return {std::bit_cast<std::uint64_t>(letters), std::bit_cast<std::uint64_t>(mask), length};
}

// By their kind.
constexpr keyword_bytes k_keywords[] = {
    make_keyword("endfacet"), make_keyword("endloop"), make_keyword("endsolid"),
    make_keyword("facet"),    make_keyword("loop"),    make_keyword("normal"),
    make_keyword("outer"),    make_keyword("solid"),   make_keyword("vertex"),
};

constexpr std::uint64_t k_lower_case = 0x2020202020202020; ///< no other byte becomes a letter by it

} // namespace

static void skip_blanks(stl_plain_text* text)
{
    while (has_class(*text->at, is_blank))
        ++text->at;
}

// Moves on to the byte that makes it another word, or to the end.
static bool refuse_word(stl_plain_text* text, const keyword_bytes& keyword)
{
    const auto wanted = std::bit_cast<eight_bytes>(keyword.text);
    for (std::size_t i = 0; i < keyword.length && (*text->at | 0x20) == wanted[i]; ++i)
        ++text->at;
    return false;
}

static bool take_word(stl_plain_text* text, stl_token_kind kind)
{
    const keyword_bytes& keyword = k_keywords[kind];
    skip_blanks(text);
    std::uint64_t found = 0;
    std::memcpy(&found, text->at, sizeof found);
    if (((found | k_lower_case) & keyword.mask) != keyword.text) return refuse_word(text, keyword);
    text->at += keyword.length;
    return has_class(*text->at, is_blank);
}

static std::uint64_t eight_characters(const unsigned char* at)
{
    return static_cast<std::uint64_t>(at[0]) | static_cast<std::uint64_t>(at[1]) << 8 |
           static_cast<std::uint64_t>(at[2]) << 16 | static_cast<std::uint64_t>(at[3]) << 24 |
           static_cast<std::uint64_t>(at[4]) << 32 | static_cast<std::uint64_t>(at[5]) << 40 |
           static_cast<std::uint64_t>(at[6]) << 48 | static_cast<std::uint64_t>(at[7]) << 56;
}

static const unsigned char* add_digits(const unsigned char* at, std::uint64_t* mantissa)
{
    std::uint64_t value = *mantissa;
    for (unsigned digit = *at - unsigned{'0'}; digit <= 9; digit = *++at - unsigned{'0'})
        value = value * 10 + digit;
    *mantissa = value;
    return at;
}

// Six digits behind the point, as "%f" writes them, in one go. Eight characters make an integer,
// the first of them lowest, in which digits are bytes 0 to 9. The sum lifts all others to 0x80 and
// beyond; what it carries goes to bytes behind the first of these.
static bool has_six_digits(std::uint64_t bytes)
{
    const std::uint64_t others = ((bytes + 0x7676767676767676) | bytes) & 0x0080808080808080;
    return (others & (0 - others)) == 0x0080000000000000;
}

// The number that eight digits make: first in pairs, then all four of these by two products, whose
// wanted sums meet in the upper half. See Lemire, "Number Parsing at a Gigabyte per Second" (2021).
static std::uint64_t eight_digits(std::uint64_t bytes)
{
    constexpr std::uint64_t k_every_other = 0x000000ff000000ff;
    constexpr std::uint64_t k_first_and_third = 100 + (1000000ull << 32);
    constexpr std::uint64_t k_second_and_fourth = 1 + (10000ull << 32);
    const std::uint64_t pairs = bytes * 10 + (bytes >> 8);
    const std::uint64_t first_and_third = (pairs & k_every_other) * k_first_and_third;
    const std::uint64_t second_and_fourth = (pairs >> 16 & k_every_other) * k_second_and_fourth;
    return (first_and_third + second_and_fourth) >> 32;
}

static const unsigned char* add_fraction(const unsigned char* at, std::uint64_t* mantissa)
{
    const std::uint64_t bytes = eight_characters(at) ^ 0x3030303030303030; // '0' becomes 0
    if (!has_six_digits(bytes)) return add_digits(at, mantissa);
    *mantissa = *mantissa * 1000000 + eight_digits(bytes << 16);
    return at + 6;
}

// Behind the letter: a sign and one to four digits.
static bool plain_exponent(stl_plain_text* text, std::int64_t* exponent)
{
    constexpr std::ptrdiff_t k_plain_digits = 4;
    const bool negative = *text->at == '-';
    if (!has_class(*text->at, is_sign)) return false;
    const unsigned char* const digits = ++text->at;
    std::uint64_t value = 0;
    text->at = add_digits(digits, &value);
    *exponent += negative ? -static_cast<std::int64_t>(value) : static_cast<std::int64_t>(value);
    return text->at != digits && text->at - digits <= k_plain_digits;
}

static inline bool take_number(stl_plain_text* text, float* value)
{
    constexpr std::ptrdiff_t k_digits_that_fit = 19; // in 64 bits
    skip_blanks(text);
    const unsigned char first = *text->at;
    const unsigned char* const whole = text->at + (first == '-' || first == '+');
    std::uint64_t mantissa = 0;
    text->at = add_digits(whole, &mantissa);
    std::ptrdiff_t digits = text->at - whole;
    std::int64_t exponent = 0;
    if (*text->at == '.') {
        const unsigned char* const fraction = text->at + 1;
        text->at = add_fraction(fraction, &mantissa);
        exponent = fraction - text->at;
        digits -= exponent;
        if (is_exponent_letter(*text->at) && (++text->at, !plain_exponent(text, &exponent)))
            return false;
        // A number that began with its point may hold another one, which has no meaning.
        if (*text->at == '.' && first == '.') return false;
    }
    double magnitude = 0.0;
    if (*text->at == k_sub || digits == 0 || digits > k_digits_that_fit) return false;
    if (!decimal_short_cut(mantissa, exponent, &magnitude) &&
        !decimal_float_cut(mantissa, exponent, &magnitude))
        return false;
    static constexpr double k_signs[2] = {1.0, -1.0}; // half are negative, at random: no branch
    *value = static_cast<float>(magnitude * k_signs[first == '-']);
    return true;
}

bool plain_line(stl_plain_text* text, const stl_plain_line& line, float* vec)
{
    stl_plain_text ahead = *text;
    bool taken = true;
    for (int i = 0; i < line.words && taken; ++i)
        taken = take_word(&ahead, line.keywords[i]);
    for (int i = 0; i < line.numbers && taken; ++i)
        taken = take_number(&ahead, &vec[i]);
    text->at = ahead.at;
    return taken;
}

} // namespace velmora
