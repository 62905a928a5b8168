#include "program/program_run.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace velmora {

namespace fs = std::filesystem;

std::string program_result::steady_log() const
{
    std::istringstream lines(log);
    std::string steady;
    for (std::string line; std::getline(lines, line);) {
        const bool times = line.find(" time (u+s) ") != std::string::npos ||
                           line.find("rate is ") != std::string::npos;
        if (!times) steady += line + "\n";
    }
    return steady;
}

run_folder::run_folder()
{
    std::string name = (fs::temp_directory_path() / "velmora-XXXXXX").string();
    path = mkdtemp(name.data());
}

run_folder::~run_folder()
{
    fs::remove_all(path);
}

void run_folder::write(const std::string& name, const std::string& bytes) const
{
    std::ofstream(path / name, std::ios::binary) << bytes;
}

std::string run_folder::read(const std::string& name) const
{
    std::ifstream in(path / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

bool run_folder::has(const std::string& name) const
{
    return fs::exists(path / name);
}

program_result run_folder::run(const std::string& options) const
{
    const std::string command = "cd '" + path.string() + "' && { " VELMORA_PROGRAM " " + options +
                                " ; } >.out 2>.log </dev/null";
    const int status = std::system(command.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, read(".log"), read(".out")};
}

std::string binary_stl(const std::vector<facet>& facets)
{
    std::string stl(84, ' ');
    const auto count = static_cast<std::uint32_t>(facets.size());
    std::memcpy(stl.data() + 80, &count, 4);
    for (const facet& f : facets) {
        char record[50] = {};
        std::memcpy(record + 12, f.corners, 36);
        stl.append(record, sizeof record);
    }
    return stl;
}

std::vector<facet> facets_of(const std::string& stl)
{
    std::vector<facet> facets;
    for (std::size_t at = 84; at + 50 <= stl.size(); at += 50) {
        facet f;
        std::memcpy(f.corners, stl.data() + at + 12, 36);
        facets.push_back(f);
    }
    return facets;
}

bool has_nan(const std::string& stl)
{
    for (std::size_t at = 84; at + 50 <= stl.size(); at += 50) {
        float numbers[12];
        std::memcpy(numbers, stl.data() + at, sizeof numbers);
        for (const float number : numbers)
            if (std::isnan(number)) return true;
    }
    return false;
}

std::string ascii_stl(const std::vector<facet>& facets)
{
    std::ostringstream text;
    text << "solid test\n";
    for (const facet& f : facets) {
        text << "facet normal 0 0 0\nouter loop\n";
        for (const auto& c : f.corners)
            text << "vertex " << std::to_string(c[0]) << ' ' << std::to_string(c[1]) << ' '
                 << std::to_string(c[2]) << '\n';
        text << "endloop\nendfacet\n";
    }
    text << "endsolid test\n";
    return text.str();
}

namespace {

using point = std::array<float, 3>;

facet facet_of(const point& a, const point& b, const point& c)
{
    return {{{a[0], a[1], a[2]}, {b[0], b[1], b[2]}, {c[0], c[1], c[2]}}};
}

// One face of a box: `axis` is its normal, at the low or the high end of `size`.
void add_face(std::vector<facet>* facets, const point& size, int axis, bool high, int n)
{
    const auto u = static_cast<std::size_t>((axis + 1) % 3);
    const auto v = static_cast<std::size_t>((axis + 2) % 3);
    const auto at = [&](int i, int j) {
        point p = {};
        p[static_cast<std::size_t>(axis)] = high ? size[static_cast<std::size_t>(axis)] : 0.0f;
        p[u] = size[u] * static_cast<float>(i) / static_cast<float>(n);
        p[v] = size[v] * static_cast<float>(j) / static_cast<float>(n);
        return p;
    };
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j < n; ++j) {
            const point a = at(i, j);
            const point b = high ? at(i + 1, j) : at(i, j + 1);
            const point c = at(i + 1, j + 1);
            const point d = high ? at(i, j + 1) : at(i + 1, j);
            facets->push_back(facet_of(a, b, c));
            facets->push_back(facet_of(a, c, d));
        }
    }
}

} // namespace

std::vector<facet> box_mesh(float dx, float dy, float dz, int n)
{
    std::vector<facet> facets;
    for (int axis = 0; axis < 3; ++axis) {
        add_face(&facets, {dx, dy, dz}, axis, false, n);
        add_face(&facets, {dx, dy, dz}, axis, true, n);
    }
    return facets;
}

std::vector<facet> sheet_mesh(float size, int n)
{
    std::vector<facet> facets;
    add_face(&facets, {size, size, 0.0f}, 2, true, n);
    return facets;
}

double volume_of(const std::vector<facet>& facets)
{
    double six_volumes = 0.0;
    for (const facet& f : facets) {
        double c[3][3];
        for (int i = 0; i < 3; ++i)
            for (int k = 0; k < 3; ++k)
                c[i][k] = static_cast<double>(f.corners[i][k]);
        six_volumes += c[0][0] * (c[1][1] * c[2][2] - c[1][2] * c[2][1]) +
                       c[0][1] * (c[1][2] * c[2][0] - c[1][0] * c[2][2]) +
                       c[0][2] * (c[1][0] * c[2][1] - c[1][1] * c[2][0]);
    }
    return six_volumes / 6.0;
}

std::size_t open_edges(const std::vector<facet>& facets)
{
    std::map<std::pair<point, point>, int> balance;
    for (const facet& f : facets) {
        for (std::size_t i = 0; i < 3; ++i) {
            const point a = {f.corners[i][0], f.corners[i][1], f.corners[i][2]};
            const std::size_t j = (i + 1) % 3;
            const point b = {f.corners[j][0], f.corners[j][1], f.corners[j][2]};
            ++balance[{a, b}];
            --balance[{b, a}];
        }
    }
    std::size_t open = 0;
    for (const auto& [edge, sum] : balance)
        if (sum > 0) ++open;
    return open;
}

} // namespace velmora
