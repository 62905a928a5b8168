// files/stl_number.h - decimal text to numbers and back, exactly rounded, whatever the locale.
//
// Reading gives what strtod gives, writing what printf gives with "%f". Both have short cuts for
// ordinary numbers that are exact by construction, and leave the rest to the library. A decimal of
// any length takes the same memory: digits beyond those that can decide the rounding are only
// weighed.
#pragma once

#include <cstdint>

namespace velmora {

constexpr int k_decimal_digits = 800; ///< kept; 767 decide between two doubles, the rest are a hint

/// A decimal number while its text is being read. Start one with decimal_clear.
struct stl_decimal {
    bool negative;         ///< a minus sign stood in front
    bool any_digit;        ///< without one there is no number
    bool in_fraction;      ///< digits stand behind the point
    bool ended;            ///< the number is complete, what follows in its text has no meaning
    bool inexact;          ///< a digit other than 0 was not kept
    std::int32_t count;    ///< kept digits; leading zeros are not kept
    std::int64_t exponent; ///< power of ten of the last kept digit
    char digits[k_decimal_digits];
};

void decimal_clear(stl_decimal* d);

/// Adds the digit character `c` behind those already there.
void decimal_add_digit(stl_decimal* d, char c);

/// The double nearest to the decimal times ten to the `exponent`; infinite when too large. 0 when
/// there was no digit. `exponent` may be anything between -1e16 and 1e16.
double decimal_value(const stl_decimal* d, std::int64_t exponent);

inline constexpr std::int64_t k_exact_power = 22;             ///< 10^22 is a double, 10^23 is not
inline constexpr std::uint64_t k_exact_mantissa = 1ull << 53; ///< integers up to here are doubles
inline constexpr double k_powers_of_ten[k_exact_power + 1] = {
    1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
    1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22,
};

/// mantissa x 10^exponent by a single exact operation; false when it takes more than that.
[[nodiscard]] inline bool decimal_short_cut(std::uint64_t mantissa, std::int64_t exponent,
                                            double* value)
{
    if (mantissa > k_exact_mantissa || exponent < -k_exact_power || exponent > k_exact_power)
        return false;
    const auto whole = static_cast<double>(static_cast<std::int64_t>(mantissa));
    *value = exponent < 0 ? whole / k_powers_of_ten[-exponent] : whole * k_powers_of_ten[exponent];
    return true;
}

/// A double that narrows to the same float as the one nearest to mantissa x 10^exponent; false when
/// that is not certain.
[[nodiscard]] bool decimal_float_cut(std::uint64_t mantissa, std::int64_t exponent, double* value);

constexpr int k_fixed_size = 48; ///< room for "%f" of any float, zero byte included

/// Writes `value` as "%f" does, without a zero byte, and returns the place behind it. `out` has
/// room for k_fixed_size characters.
char* put_fixed(char* out, float value);

} // namespace velmora
