// Reduces an STL model with tolerances that follow from its size, in one whole run of velmora.
//
//     reduce_by_size MODEL.stl RESULT.stl
//
// The distance tolerance is a ten-thousandth of the longest side of the model's box. A run closes
// the standard output at its end, so a process makes one.
#include <algorithm>
#include <cstdio>
#include <iterator>
#include <velmora/files/stl_stream.h>
#include <velmora/run/driver.h>

using namespace velmora;

// 0 when the file is no model.
static double longest_side(const char* path)
{
    std::FILE* file = std::fopen(path, "rb");
    stl_stream* stream = stl_open();
    if (!file || !stream) return 0;
    float box[6] = {1e30f, -1e30f, 1e30f, -1e30f, 1e30f, -1e30f}; // x, y, z: smallest, largest
    std::uint32_t direction = stl_reading;
    stl_set(stream, stl_prop_handle, file);
    stl_set(stream, stl_prop_direction, &direction);
    stl_set(stream, stl_prop_bbox, box);

    stl_tri tri;
    while (stl_get_triangle(stream, &tri) != 0) {}
    stl_close(stream);
    std::fclose(file);
    return double(std::max({box[1] - box[0], box[3] - box[2], box[5] - box[4], 0.0f}));
}

int main(int argc, char** argv)
{
    const double size = argc == 3 ? longest_side(argv[1]) : 0;
    if (size == 0) {
        std::fprintf(stderr, "usage: reduce_by_size MODEL.stl RESULT.stl\n");
        return 2;
    }
    char tolerance[32];
    std::snprintf(tolerance, sizeof tolerance, "%g", size / 10000);

    const char* words[] = {"velmora", "-f", argv[1],   "-o", argv[2], "-q",
                           "1",       "-r", tolerance, "-c", "0.9",   nullptr};
    const int count = static_cast<int>(std::size(words)) - 1;
    return velmora_main(count, const_cast<char**>(words)) == 0 ? 0 : 1;
}
