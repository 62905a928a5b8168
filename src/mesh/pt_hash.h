// mesh/pt_hash.h - a hash of points that agrees with pts_same: -0 and +0 are one value.
//
// A NaN is the same as nothing, so each point that has one is a stranger to all others.
#pragma once

#include <cstdint>
#include <cstring>

namespace velmora {

/// The bits of `f`, those of +0 for both zeros.
inline std::uint32_t float_key(float f)
{
    const float one_zero = f + 0.0f;
    std::uint32_t bits;
    std::memcpy(&bits, &one_zero, sizeof bits);
    return bits;
}

/// All bits of all coordinates reach the low bits of the result.
inline std::uint32_t pt_hash(const float* p)
{
    std::uint64_t h = float_key(p[0]) * 0x9E3779B97F4A7C15u;
    h = ((h ^ (h >> 32)) + float_key(p[1])) * 0xD6E8FEB86659FD93u;
    h = ((h ^ (h >> 32)) + float_key(p[2])) * 0xD6E8FEB86659FD93u;
    return static_cast<std::uint32_t>(h >> 32);
}

/// The power of two that is at least `n`, and at least 1.
inline std::uint32_t table_size_for(std::uint32_t n)
{
    std::uint32_t size = 1;
    while (size < n && size < 0x80000000u)
        size *= 2;
    return size;
}

} // namespace velmora
