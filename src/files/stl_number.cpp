#include "files/stl_number.h"

#include <algorithm>
#include <bit>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace velmora {

constexpr std::int32_t k_short_digits = 19;       ///< any such number fits 64 bits
constexpr double k_least_float = 1e-37;           ///< well inside the floats of full precision
constexpr double k_largest_float = 1e38;          ///< the same at the other end
constexpr std::int64_t k_exponent_limit = 100000; ///< far outside what a double can be

void decimal_clear(stl_decimal* d)
{
    d->negative = false;
    d->any_digit = false;
    d->in_fraction = false;
    d->ended = false;
    d->inexact = false;
    d->count = 0;
    d->exponent = 0;
}

void decimal_add_digit(stl_decimal* d, char c)
{
    if (d->ended) return;
    d->any_digit = true;
    const bool leading_zero = d->count == 0 && c == '0';
    const bool kept = !leading_zero && d->count < k_decimal_digits;
    if (kept)
        d->digits[d->count++] = c;
    else if (c != '0')
        d->inexact = true;
    // A place behind the point that is kept (or is a leading zero) moves the last digit down; one
    // in front of the point that is not kept leaves the last digit worth ten times more.
    if (d->in_fraction && (kept || leading_zero)) --d->exponent;
    if (!d->in_fraction && !kept && !leading_zero) ++d->exponent;
}

// The mantissa as a double and each of two products or quotients are off by half a place at most,
// which makes up to three places of the result, where the powers are exact and nothing leaves the
// range. The double nearest to the decimal is then among the four on either side, and these all
// narrow to the same float unless half a float lies between them. A float has 29 bits less.
bool decimal_float_cut(std::uint64_t mantissa, std::int64_t exponent, double* value)
{
    constexpr std::int64_t k_half = 1
                                    << 28; // a float's last place is worth twice that many doubles
    constexpr std::int64_t k_doubt = 8;    // doubles, twice what was argued above
    const std::int64_t power = exponent < 0 ? -exponent : exponent;
    if (power > 2 * k_exact_power) return false;
    const double first = k_powers_of_ten[std::min(power, k_exact_power)];
    const double second = k_powers_of_ten[std::max<std::int64_t>(power - k_exact_power, 0)];
    const auto whole = static_cast<double>(mantissa);
    *value = exponent < 0 ? whole / first / second : whole * first * second;
    if (!(*value >= k_least_float && *value <= k_largest_float)) return false;
    const auto rest =
        static_cast<std::int64_t>(std::bit_cast<std::uint64_t>(*value) & (2 * k_half - 1));
    return rest < k_half - k_doubt || rest > k_half + k_doubt;
}

// An integer and an exponent: no point, so the locale has no say. A lost digit is at the far end of
// a number whose rounding it can decide only by being there at all.
static double library_value(const stl_decimal* d, std::int64_t exponent)
{
    char text[k_decimal_digits + 32];
    std::memcpy(text, d->digits, static_cast<std::size_t>(d->count));
    char* end = text + d->count;
    if (d->inexact) {
        *end++ = '1';
        --exponent;
    }
    exponent = std::clamp(exponent, -k_exponent_limit, k_exponent_limit);
    std::snprintf(end, 24, "e%" PRId64, exponent);
    return std::strtod(text, nullptr);
}

double decimal_value(const stl_decimal* d, std::int64_t exponent)
{
    double value = 0.0;
    if (d->count > 0) {
        exponent += d->exponent;
        std::uint64_t mantissa = 0;
        for (std::int32_t i = 0; i < std::min(d->count, k_short_digits); ++i)
            mantissa = mantissa * 10 + static_cast<std::uint64_t>(d->digits[i] - '0');
        const bool is_short = d->count <= k_short_digits;
        if (!is_short || !decimal_short_cut(mantissa, exponent, &value))
            value = library_value(d, exponent);
    }
    return d->negative && d->any_digit ? -value : value;
}

/// The two digits of each number below a hundred.
struct digit_pairs {
    char text[200];
};

static constexpr digit_pairs make_pairs()
{
    digit_pairs pairs{};
    for (std::size_t i = 0; i < 100; ++i) {
        pairs.text[2 * i] = static_cast<char>('0' + i / 10);
        pairs.text[2 * i + 1] = static_cast<char>('0' + i % 10);
    }
    return pairs;
}

static constexpr digit_pairs k_pairs = make_pairs();

static char* put_pair(char* out, std::uint32_t value)
{
    std::memcpy(out, k_pairs.text + std::size_t{2} * value, 2);
    return out + 2;
}

static char* put_six_digits(char* out, std::uint32_t value)
{
    out = put_pair(out, value / 10000);
    out = put_pair(out, value / 100 % 100);
    return put_pair(out, value % 100);
}

// Few coordinates have more than three digits in front of the point.
static char* put_whole(char* out, std::uint64_t value)
{
    if (value >= 100) {
        out = put_whole(out, value / 100);
        return put_pair(out, static_cast<std::uint32_t>(value % 100));
    }
    if (value >= 10) return put_pair(out, static_cast<std::uint32_t>(value));
    *out = static_cast<char>('0' + value);
    return out + 1;
}

// mantissa x 2^exponent in millionths, halves to even: what is added carries into the whole ones
// when the rest is above half, or is half and the whole is odd. The mantissa has 24 bits and a
// million 20, so the product is exact and is below half of one for every shift beyond 44.
static std::uint64_t in_millionths(std::uint32_t mantissa, int exponent)
{
    const std::uint64_t product = std::uint64_t{mantissa} * 1000000u;
    if (exponent >= 0) return product << exponent;
    const int shift = -exponent;
    if (shift > 62) return 0;
    const std::uint64_t half = 1ull << (shift - 1);
    return (product + half - 1 + (product >> shift & 1)) >> shift;
}

char* put_fixed(char* out, float value)
{
    constexpr int k_bias = 150;         // of the exponent field, the mantissa taken as an integer
    constexpr int k_largest_shift = 19; // 44 bits shifted by this still fit 63
    const auto bits = std::bit_cast<std::uint32_t>(value);
    const std::uint32_t field = bits >> 23 & 0xffu;
    const std::uint32_t fraction = bits & 0x7fffffu;
    const int exponent = static_cast<int>(std::max(field, 1u)) - k_bias;
    if (exponent > k_largest_shift)
        return out + std::snprintf(out, k_fixed_size, "%f", static_cast<double>(value));

    const std::uint32_t mantissa = field == 0 ? fraction : fraction | 0x800000u;
    const std::uint64_t millionths = in_millionths(mantissa, exponent);
    *out = '-'; // overwritten unless it is wanted: half of all numbers have it, at random
    out += bits >> 31;
    out = put_whole(out, millionths / 1000000u);
    *out++ = '.';
    return put_six_digits(out, static_cast<std::uint32_t>(millionths % 1000000u));
}

} // namespace velmora
