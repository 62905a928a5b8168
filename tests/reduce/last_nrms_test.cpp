#include "mesh/vec.h"
#include "random_trs.h"
#include "reduce/last_nrms.h"

#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <random>

namespace velmora {

namespace {

enum nrm_kind {
    k_scattered,
    k_crowded,
    k_on_lattice,
    k_not_finite,
    k_kind_count
};

float coordinate(nrm_kind kind, float tol, std::mt19937* random)
{
    const float fraction = std::generate_canonical<float, 24>(*random) * 2.0f - 1.0f;
    if (kind == k_scattered) return fraction;
    if (kind == k_crowded) return 0.5f + 4.0f * tol * fraction;
    if (kind == k_not_finite && (*random)() % 200 == 0)
        return (*random)() % 2 ? std::numeric_limits<float>::quiet_NaN() : HUGE_VALF;
    // Borders of cells, and what lies just beside them.
    const float at = tol * static_cast<float>(static_cast<int>((*random)() % 9) - 4);
    const float beside[3] = {at, std::nextafter(at, 2.0f), std::nextafter(at, -2.0f)};
    return beside[(*random)() % 3];
}

} // namespace

TEST(last_nrms, are_those_of_comparing_each_with_each)
{
    for (const float tol : {1e-6f, 0.01f, 0.3f, 4.0f, 1e-30f, 1e30f}) {
        for (int kind = 0; kind < k_kind_count; ++kind) {
            mesh_fixture m(random_points(1, 12), random_trs(1, 12, 600));
            m.set_merge_tol(tol);
            std::mt19937 random(static_cast<unsigned>(kind));
            for (const tr_h t : m.trs)
                for (float& c : rec(t).nrm)
                    c = coordinate(static_cast<nrm_kind>(kind), tol, &random);
            const vtx_fan fan = {m.trs.data(), static_cast<std::uint32_t>(m.trs.size())};
            bool fast[600];
            bool plain[600];
            mark_last_nrms(fan, fast);
            mark_last_nrms_plainly(fan, plain);
            for (std::uint32_t k = 0; k < fan.count; ++k)
                ASSERT_EQ(fast[k], plain[k]) << k << " of kind " << kind << ", tolerance " << tol;
        }
    }
}

} // namespace velmora
