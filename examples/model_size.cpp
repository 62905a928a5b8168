// Tells the number of triangles, the surface and the volume of an STL model, text or binary.
//
//     model_size MODEL.stl
//
// Triangles come one at a time, so a model of any size needs no memory.
#include <cmath>
#include <cstdio>
#include <velmora/files/stl_stream.h>

using namespace velmora;

struct sizes {
    unsigned long triangles = 0;
    double area = 0;
    double volume = 0; // right for a closed surface
};

static void add_triangle(const stl_tri& tri, sizes* sum)
{
    const float* a = tri.corner1;
    double u[3], v[3];
    for (int i = 0; i < 3; ++i) {
        u[i] = double(tri.corner2[i]) - double(a[i]);
        v[i] = double(tri.corner3[i]) - double(a[i]);
    }
    const double n[3] = {u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2],
                         u[0] * v[1] - u[1] * v[0]};
    sum->triangles += 1;
    sum->area += std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]) / 2;
    sum->volume += (double(a[0]) * n[0] + double(a[1]) * n[1] + double(a[2]) * n[2]) / 6;
}

int main(int argc, char** argv)
{
    std::FILE* file = argc == 2 ? std::fopen(argv[1], "rb") : nullptr;
    stl_stream* stream = stl_open();
    if (!file || !stream) {
        std::fprintf(stderr, "usage: model_size MODEL.stl\n");
        return 2;
    }
    std::uint32_t direction = stl_reading;
    std::uint32_t format = stl_format_detect;
    stl_set(stream, stl_prop_handle, file);
    stl_set(stream, stl_prop_direction, &direction);
    stl_set(stream, stl_prop_format, &format);

    sizes sum;
    stl_tri tri;
    while (stl_get_triangle(stream, &tri) != 0)
        add_triangle(tri, &sum);
    const char* error = stl_error(stream);
    if (error) std::fprintf(stderr, "%s: %s\n", argv[1], error);
    std::printf("%lu triangles, %.2f mm2, %.2f mm3\n", sum.triangles, sum.area, sum.volume);

    const int status = error ? 1 : 0;
    stl_close(stream);
    std::fclose(file);
    return status;
}
