// files/little_endian.h - numbers as files hold them, lowest byte first, whatever the machine does.
//
// Floats travel as the bits they are: no conversion ever sees them, so every NaN comes back.
#pragma once

#include <bit>
#include <cstdint>

namespace velmora {

inline std::uint32_t get_u32(const unsigned char* at)
{
    return static_cast<std::uint32_t>(at[0]) | static_cast<std::uint32_t>(at[1]) << 8 |
           static_cast<std::uint32_t>(at[2]) << 16 | static_cast<std::uint32_t>(at[3]) << 24;
}

inline std::uint64_t get_u64(const unsigned char* at)
{
    return get_u32(at) | static_cast<std::uint64_t>(get_u32(at + 4)) << 32;
}

inline float get_f32(const unsigned char* at)
{
    return std::bit_cast<float>(get_u32(at));
}

inline void put_u32(unsigned char* at, std::uint32_t value)
{
    at[0] = static_cast<unsigned char>(value);
    at[1] = static_cast<unsigned char>(value >> 8);
    at[2] = static_cast<unsigned char>(value >> 16);
    at[3] = static_cast<unsigned char>(value >> 24);
}

inline void put_u64(unsigned char* at, std::uint64_t value)
{
    put_u32(at, static_cast<std::uint32_t>(value));
    put_u32(at + 4, static_cast<std::uint32_t>(value >> 32));
}

inline void put_f32(unsigned char* at, float value)
{
    put_u32(at, std::bit_cast<std::uint32_t>(value));
}

} // namespace velmora
