// fuzz/model.h - small hostile models made from a few bytes, in each of the three forms of a file.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace velmora {

/// Bytes that are used up from the front; then zeros.
struct byte_source {
    const std::uint8_t* at;
    std::size_t left;

    std::uint8_t next();

    /// A number below `limit`, which is at most 256.
    std::uint32_t below(std::uint32_t limit)
    {
        return next() % limit;
    }
};

/// Triangles on shared points.
struct fuzz_model {
    std::vector<std::array<float, 3>> points;
    std::vector<std::array<std::uint32_t, 3>> tris;
};

/// Parts one after another: lattice soups, sheets, fans, shells, bands, odd numbers. Three hundred
/// triangles at most; the bytes decide everything.
fuzz_model make_model(byte_source* bytes);

std::string as_binary_stl(const fuzz_model& model);

std::string as_ascii_stl(const fuzz_model& model);

/// Neighbour links and marks are right, missing or wild, as the bytes say.
std::string as_kvd(const fuzz_model& model, byte_source* bytes);

} // namespace velmora
