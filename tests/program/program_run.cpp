#include "program/program_run.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <sstream>
#include <sys/wait.h>

namespace velmora {

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

program_result run_folder::run(const std::string& options) const
{
    return shell(VELMORA_PROGRAM " " + options);
}

program_result run_folder::shell(const std::string& commands) const
{
    const int status = std::system(
        ("cd '" + path.string() + "' && { " + commands + " ; } >.out 2>.log </dev/null").c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, read(".log"), read(".out")};
}

std::string binary_stl(const std::vector<facet>& facets)
{
    std::string stl(84, ' ');
    const auto count = static_cast<std::uint32_t>(facets.size());
    std::memcpy(stl.data() + 80, &count, 4);
    for (const facet& f : facets) {
        char record[50] = {};
        std::memcpy(record + 12, &f, sizeof f);
        stl.append(record, sizeof record);
    }
    return stl;
}

std::vector<facet> facets_of(const std::string& stl)
{
    std::vector<facet> facets;
    for (std::size_t at = 84; at + 50 <= stl.size(); at += 50) {
        facet f;
        std::memcpy(&f, stl.data() + at + 12, sizeof f);
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
        for (const point& c : f)
            text << "vertex " << std::to_string(c[0]) << ' ' << std::to_string(c[1]) << ' '
                 << std::to_string(c[2]) << '\n';
        text << "endloop\nendfacet\n";
    }
    text << "endsolid test\n";
    return text.str();
}

// One face of a box: `axis` is its normal, at the low or the high end of `size`.
static void add_face(std::vector<facet>* facets, const point& size, std::size_t axis, bool high,
                     int n)
{
    const std::size_t u = (axis + 1) % 3;
    const std::size_t v = (axis + 2) % 3;
    const auto at = [&](int i, int j) {
        point p = {};
        p[axis] = high ? size[axis] : 0.0f;
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
            facets->push_back({a, b, c});
            facets->push_back({a, c, d});
        }
    }
}

std::vector<facet> box_mesh(float dx, float dy, float dz, int n)
{
    std::vector<facet> facets;
    for (std::size_t axis = 0; axis < 3; ++axis) {
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
    for (const auto& [a, b, c] : facets) {
        for (std::size_t i = 0; i < 3; ++i) {
            const std::size_t u = (i + 1) % 3;
            const std::size_t v = (i + 2) % 3;
            six_volumes += static_cast<double>(a[i] * (b[u] * c[v] - b[v] * c[u]));
        }
    }
    return six_volumes / 6.0;
}

std::size_t open_edges(const std::vector<facet>& facets)
{
    std::map<std::pair<point, point>, int> balance;
    for (const facet& f : facets) {
        for (std::size_t i = 0; i < 3; ++i) {
            ++balance[{f[i], f[(i + 1) % 3]}];
            --balance[{f[(i + 1) % 3], f[i]}];
        }
    }
    std::size_t open = 0;
    for (const auto& [edge, sum] : balance)
        if (sum > 0) ++open;
    return open;
}

} // namespace velmora
