// bench/deviation.cpp - tells how far two models lie apart, each way.
//
//     deviation MODEL.stl REDUCED.stl
//
// Prints the largest and the mean distance of the first from the second, then of the second from
// the first, in the unit of the models. Sample points are a four-hundredth of the first model's
// diagonal apart.

#include "distance.h"
#include "files/stl_stream.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <utility>

namespace {

using velmora::bench::deviation;
using velmora::bench::surface;
using velmora::bench::triangle;

constexpr double k_samples = 400.0; // along the diagonal

bool read_model(const char* path, std::vector<triangle>* trs)
{
    std::FILE* file = std::fopen(path, "rb");
    if (!file) return false;
    velmora::stl_stream* stream = velmora::stl_open();
    std::uint32_t direction = velmora::stl_reading;
    stl_set(stream, velmora::stl_prop_handle, file);
    stl_set(stream, velmora::stl_prop_direction, &direction);
    velmora::stl_tri tri;
    while (stl_get_triangle(stream, &tri) != 0) {
        triangle tr;
        const float* corners[] = {tri.corner1, tri.corner2, tri.corner3};
        for (std::size_t i = 0; i < std::size(corners); ++i)
            std::memcpy(tr.vtx[i], corners[i], sizeof tr.vtx[i]);
        trs->push_back(tr);
    }
    const bool good = !stl_error(stream);
    stl_close(stream);
    std::fclose(file);
    return good;
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<triangle> models[2];
    for (int i = 0; i < 2; ++i) {
        if (argc == 3 && read_model(argv[i + 1], &models[i])) continue;
        std::fprintf(stderr, "usage: deviation MODEL.stl REDUCED.stl\n");
        return 2;
    }
    const surface first(std::move(models[0]));
    const surface second(std::move(models[1]));
    const double step = std::max(first.diagonal() / k_samples, 1e-30);
    const deviation there = measure_deviation(first, second, step);
    const deviation back = measure_deviation(second, first, step);
    std::printf("there: max %.6f mean %.6f  back: max %.6f mean %.6f\n", there.max, there.mean,
                back.max, back.mean);
    return 0;
}
