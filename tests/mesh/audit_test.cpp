#include "mesh/audit.h"
#include "mesh_fixture.h"

#include <gtest/gtest.h>

namespace velmora {

static const char* const k_quad = "a 0 0 0  b 1 0 0  c 1 1 0  d 0 1 0";

TEST(audit, one_spoiled_count_is_one_fault)
{
    mesh_fixture m(k_quad, "abc acd");
    ++rec(m.obj("abc")).refs;
    EXPECT_EQ(audit_counts(&m.ctx, nullptr, 0, nullptr), 1u);
    --rec(m.obj("abc")).refs;
    ++m.at("abc").refs;
    EXPECT_EQ(audit_counts(&m.ctx, nullptr, 0, nullptr), 1u);
    --m.at("abc").refs;
    ++rec(m.vtx('b')).holders;
    EXPECT_EQ(audit_counts(&m.ctx, nullptr, 0, nullptr), 1u);
    --rec(m.vtx('b')).holders;
    EXPECT_TRUE(m.counts_are_exact());
}

TEST(audit, link_without_an_answer_is_a_fault)
{
    mesh_fixture m(k_quad, "abc acd");
    m.link("abc", "acd");
    m.at("acd").nbr[0] = {};
    EXPECT_EQ(audit_links(&m.ctx, nullptr), 1u);
    m.at("abc").nbr[2] = m.tr("abc");
    EXPECT_EQ(audit_links(&m.ctx, nullptr), 1u);
}

} // namespace velmora
