#include "files/stl_number.h"

#include <bit>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <random>
#include <string>

using namespace velmora;

static std::string fixed(float value)
{
    char text[k_fixed_size];
    return {text, put_fixed(text, value)};
}

static std::string library_fixed(float value)
{
    char text[64];
    std::snprintf(text, sizeof text, "%f", static_cast<double>(value));
    return text;
}

TEST(stl_number, fixed_text_is_the_librarys_at_the_seams)
{
    // Ties at the seventh decimal are odd multiples of 2^-7 and finer, whose digits end in a 5.
    const float seams[] = {0.0f,       0.5f,           0.1f,     1.0f,    1e-6f,          0.5e-6f,
                           1e10f,      0x1p-7f,        0x3p-7f,  0x1p-8f, 0x201p-8f,      999999.5f,
                           8388607.5f, 0x1.fffffep42f, 0x1p43f,  0x1p44f, 0x1.fffffep-1f, FLT_MIN,
                           FLT_MAX,    FLT_TRUE_MIN,   INFINITY, NAN};
    for (const float value : seams) {
        EXPECT_EQ(fixed(value), library_fixed(value));
        EXPECT_EQ(fixed(-value), library_fixed(-value));
    }
}

TEST(stl_number, fixed_text_is_the_librarys_for_any_bits)
{
    std::mt19937 random(1);
    for (int i = 0; i < 200000; ++i) {
        const auto value = std::bit_cast<float>(static_cast<std::uint32_t>(random()));
        ASSERT_EQ(fixed(value), library_fixed(value));
        // Few bits behind the point: here the ties are.
        const float tie = std::ldexp(static_cast<float>(random() % 0x10000u), -12 + i % 10);
        ASSERT_EQ(fixed(tie), library_fixed(tie));
    }
}

// Decimals without exponent go in digit by digit.
static double value_of(const std::string& text, std::int64_t exponent)
{
    stl_decimal d;
    decimal_clear(&d);
    for (const char c : text) {
        if (c == '-')
            d.negative = true;
        else if (c == '.')
            d.in_fraction = true;
        else
            decimal_add_digit(&d, c);
    }
    return decimal_value(&d, exponent);
}

static void expect_as_library(const std::string& text, int exponent)
{
    const double wanted = std::strtod((text + "e" + std::to_string(exponent)).c_str(), nullptr);
    EXPECT_EQ(std::bit_cast<std::uint64_t>(value_of(text, exponent)),
              std::bit_cast<std::uint64_t>(wanted))
        << text << " e " << exponent;
}

TEST(stl_number, decimals_round_as_the_library_does)
{
    std::mt19937 random(2);
    const auto digits = [&random](std::size_t count) {
        std::string text;
        while (text.size() < count)
            text += static_cast<char>('0' + (random() % 4 ? random() % 10 : 0));
        return text;
    };
    for (int i = 0; i < 100000; ++i) {
        const std::string sign = random() % 2 ? "-" : "";
        const std::string text = sign + digits(random() % 24) + "0." + digits(random() % 24);
        expect_as_library(text, static_cast<int>(random() % 700) - 350);
    }
}

// True when the cut was taken.
static bool cuts_as_library(std::uint64_t mantissa, int exponent)
{
    double value = 0.0;
    if (!decimal_float_cut(mantissa, exponent, &value)) return false;
    const std::string text = std::to_string(mantissa) + "e" + std::to_string(exponent);
    const double wanted = std::strtod(text.c_str(), nullptr);
    EXPECT_EQ(static_cast<float>(value), static_cast<float>(wanted)) << text;
    return true;
}

TEST(stl_number, floats_of_many_digits_narrow_as_the_librarys_doubles)
{
    std::mt19937_64 random(6);
    int taken = 0;
    for (int i = 0; i < 100000; ++i) {
        const int exponent = static_cast<int>(random() % 100) - 50;
        taken += cuts_as_library(random() >> random() % 60, exponent);
        // Between two floats, give or take the last of 19 digits.
        const auto low =
            std::bit_cast<float>(static_cast<std::uint32_t>(0x20000000 + random() % 0x40000000));
        const double middle =
            (static_cast<double>(low) + static_cast<double>(std::nextafter(low, HUGE_VALF))) / 2;
        const int scale = 18 - static_cast<int>(std::floor(std::log10(middle)));
        const double digits = middle * std::pow(10.0, scale);
        cuts_as_library(static_cast<std::uint64_t>(digits) + random() % 4096 - 2048, -scale);
    }
    EXPECT_GT(taken, 60000);
}

TEST(stl_number, the_last_of_a_thousand_digits_breaks_a_tie)
{
    const std::string tie = "9007199254740993"; // between two doubles
    const std::string zeros(2000, '0');
    expect_as_library(tie + "." + zeros, 0);
    expect_as_library(tie + "." + zeros + "1", 0);
    expect_as_library("0." + zeros + tie + zeros + "1", 2016);
    expect_as_library(zeros + tie + zeros, -2000);
    expect_as_library("1" + zeros, -2000);
}

TEST(stl_number, exponents_of_any_size_end_at_zero_and_infinity)
{
    const std::int64_t huge = 1000000000000000;
    EXPECT_EQ(value_of("1", huge), HUGE_VAL);
    EXPECT_EQ(value_of("-1", huge), -HUGE_VAL);
    EXPECT_EQ(value_of("1", -huge), 0.0);
    EXPECT_EQ(value_of("0", huge), 0.0);
    EXPECT_TRUE(std::signbit(value_of("-0.0", 5)));
}
