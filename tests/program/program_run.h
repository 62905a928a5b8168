// tests/program/program_run.h - starts the built program in an empty folder and looks at the
// result.
#pragma once

#include "temp_folder.h"

#include <array>
#include <string>
#include <vector>

namespace velmora {

/// What a run left behind besides its files.
struct program_result {
    int status;      ///< exit status of the process, -1 when it died otherwise
    std::string log; ///< standard error
    std::string out; ///< standard output

    /// Whether the log holds this.
    bool says(const std::string& text) const
    {
        return log.find(text) != std::string::npos;
    }
    /// The log without the lines that tell times.
    std::string steady_log() const;
};

/// A folder in which the program runs.
struct run_folder : temp_folder {
    /// Runs `velmora options` here through a shell, so that quotes and redirections work.
    program_result run(const std::string& options) const;
    /// Runs other commands here in the same way.
    program_result shell(const std::string& commands) const;
};

/// One facet of a test model: its corners.
using point = std::array<float, 3>;
using facet = std::array<point, 3>;

/// A binary STL file of these facets.
std::string binary_stl(const std::vector<facet>& facets);

/// The same as text.
std::string ascii_stl(const std::vector<facet>& facets);

/// The facets of a binary STL file, and whether any of its numbers is NaN, normals included.
std::vector<facet> facets_of(const std::string& stl);
bool has_nan(const std::string& stl);

/// The surface of a box with every face cut into n by n squares of two triangles each; closed and
/// wound outwards.
std::vector<facet> box_mesh(float dx, float dy, float dz, int n);

/// An open sheet of n by n squares in the plane z = 0.
std::vector<facet> sheet_mesh(float size, int n);

/// Volume enclosed by a closed surface that is wound outwards.
double volume_of(const std::vector<facet>& facets);

/// Number of directed edges without a partner that runs the other way: 0 for a closed surface.
std::size_t open_edges(const std::vector<facet>& facets);

} // namespace velmora
