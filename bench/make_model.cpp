// bench/make_model.cpp - writes a generated model as a binary STL file.
//
//     make_model SHAPE TRIANGLES SEED [shuffled] OUT.stl
//
// The number of triangles becomes the nearest that the shape can have, and is printed; a hostile
// model has exactly as many as wanted, and is never shuffled. The same arguments give the same
// bytes on every machine.

#include "hostile.h"
#include "shapes.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

using velmora::bench::hostile_kind;
using velmora::bench::model;
using velmora::bench::triangle;

constexpr std::size_t k_header_size = 84;
constexpr std::size_t k_record_size = 50;
constexpr std::uint64_t k_most_triangles = 80000000; // 4 GB of file

void put_u32(unsigned char* to, std::uint32_t value)
{
    for (unsigned i = 0; i < 4; ++i)
        to[i] = static_cast<unsigned char>(value >> (8 * i));
}

void put_vec(unsigned char* to, const float vec[3])
{
    for (std::size_t i = 0; i < 3; ++i) {
        std::uint32_t bits;
        std::memcpy(&bits, &vec[i], sizeof bits);
        put_u32(to + 4 * i, bits);
    }
}

/// The unit normal by the winding; zero for a triangle without area.
void unit_normal(const triangle& tr, float nrm[3])
{
    double a[3], b[3];
    for (int i = 0; i < 3; ++i) {
        a[i] = static_cast<double>(tr.vtx[1][i]) - static_cast<double>(tr.vtx[0][i]);
        b[i] = static_cast<double>(tr.vtx[2][i]) - static_cast<double>(tr.vtx[0][i]);
    }
    const double n[3] = {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2],
                         a[0] * b[1] - a[1] * b[0]};
    const double len = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
    for (int i = 0; i < 3; ++i)
        nrm[i] = len > 0.0 ? static_cast<float>(n[i] / len) : 0.0f;
}

/// What is to be written: a model, or that many triangles of a hostile kind.
struct source {
    const char* name;
    model m;
    hostile_kind hostile; // hostile_count: the model
    bool shuffled;
};

triangle triangle_at(const source& from, std::uint64_t place)
{
    if (from.hostile != velmora::bench::hostile_count)
        return hostile_triangle(from.hostile, from.m.count, from.m.seed, place);
    return model_triangle(from.m, from.shuffled ? shuffled_index(from.m, place) : place);
}

bool write_header(const source& from, std::FILE* out)
{
    const model& m = from.m;
    unsigned char header[k_header_size] = {};
    char text[80] = {};
    std::snprintf(text, sizeof text, "generated %s, seed %llu", from.name,
                  static_cast<unsigned long long>(m.seed));
    std::memcpy(header, text, sizeof text);
    put_u32(header + 80, static_cast<std::uint32_t>(m.count));
    return std::fwrite(header, sizeof header, 1, out) == 1;
}

bool write_model(const source& from, std::FILE* out)
{
    if (!write_header(from, out)) return false;
    for (std::uint64_t place = 0; place < from.m.count; ++place) {
        const triangle tr = triangle_at(from, place);
        float nrm[3];
        unit_normal(tr, nrm);
        unsigned char record[k_record_size] = {};
        put_vec(record, nrm);
        for (std::size_t i = 0; i < 3; ++i)
            put_vec(record + 12 + 12 * i, tr.vtx[i]);
        if (std::fwrite(record, sizeof record, 1, out) != 1) return false;
    }
    return true;
}

bool parse_number(const char* text, std::uint64_t* number)
{
    char* end = nullptr;
    errno = 0;
    *number = std::strtoull(text, &end, 10);
    return errno == 0 && end != text && *end == '\0' && *text != '-';
}

int usage()
{
    std::fputs("usage: make_model SHAPE TRIANGLES SEED [shuffled] OUT.stl\nshapes:", stderr);
    for (int kind = 0; kind < velmora::bench::shape_count; ++kind)
        std::fprintf(stderr, " %s",
                     velmora::bench::shape_name(static_cast<velmora::bench::shape_kind>(kind)));
    std::fputs("\nhostile:", stderr);
    for (int kind = 0; kind < velmora::bench::hostile_count; ++kind)
        std::fprintf(stderr, " %s", velmora::bench::hostile_name(static_cast<hostile_kind>(kind)));
    std::fputs("\n", stderr);
    return 2;
}

} // namespace

int main(int argc, char** argv)
{
    const bool shuffled = argc == 6 && std::strcmp(argv[4], "shuffled") == 0;
    if (argc != 5 && !shuffled) return usage();
    source from = {argv[1], {}, velmora::bench::hostile_by_name(argv[1]), shuffled};
    const velmora::bench::shape_kind kind = velmora::bench::shape_by_name(argv[1]);
    const bool hostile = from.hostile != velmora::bench::hostile_count;
    std::uint64_t wanted, seed;
    if ((kind == velmora::bench::shape_count && !hostile) || (hostile && shuffled) ||
        !parse_number(argv[2], &wanted) || !parse_number(argv[3], &seed) ||
        wanted > k_most_triangles)
        return usage();
    from.m = hostile ? model{velmora::bench::shape_count, seed, 0, wanted}
                     : velmora::bench::make_model(kind, wanted, seed);

    const char* path = argv[argc - 1];
    std::FILE* out = std::fopen(path, "wb");
    if (!out) {
        std::fprintf(stderr, "make_model: %s: %s\n", path, std::strerror(errno));
        return 1;
    }
    std::setvbuf(out, nullptr, _IOFBF, 1 << 20);
    const bool written = write_model(from, out);
    if (std::fclose(out) != 0 || !written) {
        std::fprintf(stderr, "make_model: %s could not be written: %s\n", path,
                     std::strerror(errno));
        return 1;
    }
    std::printf("%s: %llu triangles\n", path, static_cast<unsigned long long>(from.m.count));
    return 0;
}
