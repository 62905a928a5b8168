#include "shell/help.h"

#include "run/options.h"

#include <cstdio>
#include <cstring>

namespace velmora {

namespace {

constexpr const char* k_help =
    "velmora takes a triangle model and gives it back with fewer triangles, within\n"
    "tolerances. It joins loose triangles to a surface, turns them all the same way\n"
    "round, drops those without area, and moves vertices onto neighbours where that\n"
    "is safe.\n"
    "\n"
    "  velmora -f MODEL -o RESULT -q MODE -r MM -c COSINE [OPTION ...]\n"
    "\n"
    "Files\n"
    "  -f FILE     model to read; without it the standard input\n"
    "  -o FILE     result; without it the standard output. \"=\" puts the result in\n"
    "              the place of the model, which is kept under its name with a ~\n"
    "  -e FILE     removed vertices, a triangle without area for each\n"
    "  -F FORM     form of the model:   a text STL, b binary STL, m .kvd model file\n"
    "  -O FORM     form of the result:  a, b or m\n"
    "  -E FORM     form of the removed: a or b\n"
    "              Without -F and -O names decide: .astl is a, .stl b, .kvd m. A\n"
    "              model without such a name is b, a result has the model's form.\n"
    "\n"
    "Mode: which vertices go\n"
    "  -q 1        distance: on flat surfaces and along straight features\n"
    "  -q 2        short edge: at an edge shorter than -j\n"
    "  -q 3        maximum edge: as in 1, always along the shortest edge, under -i\n"
    "  -q 4        bad aspect: of triangles with an angle under -a\n"
    "  -S          none: turns diagonals of triangles thinner than -h instead;\n"
    "              -q is needed all the same, its value is not used\n"
    "  -P          with -S: again, while the number of thin triangles falls\n"
    "\n"
    "Tolerances (lengths in the unit of the model, called mm)\n"
    "  -r MM       > 0        a vertex's neighbours are this close to its plane\n"
    "  -c COSINE   -1 to 1    faces whose normals agree this much or less meet in a\n"
    "                         feature: 0.98 is 11 degrees, 0.9 is 26, 0.5 is 60\n"
    "  -i MM       > 0        longest edge that a removal may make\n"
    "  -j MM       > 0        edges shorter than this go\n"
    "  -a DEGREES  0 to 60    smallest angle of a sound triangle\n"
    "  -h RATIO    0 to 0.87  smallest height of a sound one by its longest edge\n"
    "  -g MM       > 0        vertices on the lines of this grid stay\n"
    "  -m MM       > 0        points this close on each axis are one (0.000001)\n"
    "  -K MM                  STL triangles with larger coordinates stay out (1e10)\n"
    "  Modes 1, 3 and 4 need -r and -c; with -j they may be left out.\n"
    "\n"
    "Log (on the standard error)\n"
    "  -V N        3 says all (the default), 4 to 7 say less, 0 lists the options\n"
    "  -W N        tells the end of the run in a box of its own\n"
    "\n"
    "Examples\n"
    "  velmora -f part.stl -o small.stl -q 1 -r 0.05 -c 0.9\n"
    "  velmora -f scan.stl -o = -q 3 -r 0.2 -c 0.9 -i 5\n"
    "  velmora -f part.stl -o sound.stl -q 4 -r 0.1 -c 0.9 -a 20\n"
    "  velmora -f part.stl -o text.astl -q 1 -S -h 0.1 -r 0.05 -c 0.9\n"
    "\n"
    "Ends with 0, or with 255 when an option was wrong or the run was stopped. A run\n"
    "that fails on its data ends with 0 as well: the log tells. More in velmora(1).\n";

} // namespace

const char* asked_text(int argc, const char* const* argv)
{
    static char version[32];
    if (argc != 2) return nullptr;
    if (std::strcmp(argv[1], "--help") == 0) return k_help;
    if (std::strcmp(argv[1], "--version") != 0) return nullptr;
    std::snprintf(version, sizeof version, "%s\n", k_version_id);
    return version;
}

int print_asked_text(const char* text)
{
    const bool written = std::fputs(text, stdout) >= 0 && std::fflush(stdout) == 0;
    return written ? 0 : 255;
}

} // namespace velmora
