// tests/program/model_run.h - runs on a closed model that is there in every form.
#pragma once

#include "program/program_run.h"

#include <cstddef>
#include <gtest/gtest.h>
#include <string>

namespace velmora {

inline const std::string k_as_is = " -r 0.01 -c 0.9 -q 4"; // without -a no vertex goes
inline const std::string k_reduce = " -r 0.01 -c 0.9 -q 1";

/// All modes, and thin repair with shape optimisation.
inline const std::string k_ways[] = {" -r 0.05 -c 0.9 -q 1", " -j 1.2 -q 2",
                                     " -r 0.05 -c 0.9 -i 3 -q 3", " -r 0.1 -c 0.9 -a 35 -q 4",
                                     " -r 1 -c 0.9 -h 0.4 -S -P -q 1"};

/// A folder with a closed model under the names in.stl, in.astl and in.kvd.
struct model_run : testing::Test {
    run_folder dir;
    std::string model = binary_stl(box_mesh(2, 2, 2, 4));

    model_run()
    {
        dir.write("in.stl", model);
        dir.write("in.astl", ascii_stl(box_mesh(2, 2, 2, 4)));
        dir.run("-f in.stl -o in.kvd" + k_as_is);
    }

    static std::size_t count_of(const std::string& text, const std::string& in)
    {
        std::size_t n = 0;
        for (std::size_t at = 0; (at = in.find(text, at)) != std::string::npos; at += text.size())
            ++n;
        return n;
    }
};

} // namespace velmora
