// files/stl_ascii_chars.h - what the characters of a text STL are good for.
#pragma once

#include <array>
#include <cstdint>

namespace velmora {

constexpr unsigned char k_sub = 0x1a; ///< Ctrl-Z, dropped wherever it stands

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

inline constexpr std::array<std::uint8_t, 256> k_classes = make_classes();

/// `c` may be -1 for the end of input, which is of no class.
inline bool has_class(int c, std::uint8_t wanted)
{
    return c >= 0 && (k_classes[static_cast<unsigned char>(c)] & wanted) != 0;
}

inline bool is_exponent_letter(int c)
{
    return c == 'e' || c == 'E' || c == 'd' || c == 'D';
}

} // namespace velmora
