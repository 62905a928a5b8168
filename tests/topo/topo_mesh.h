// tests/topo/topo_mesh.h - the mesh builder, which also counts and frees the table of edge errors.
#pragma once

#include "mesh_fixture.h"
#include "topo/edge_tbl.h"
#include "topo/topology.h"

#include <gtest/gtest.h>

namespace velmora {

struct topo_mesh : mesh_fixture {
    using mesh_fixture::mesh_fixture;

    ~topo_mesh()
    {
        edge_tbl_free(&topo.edge_errs);
    }

    /// All holders, users of edge errors included.
    bool holders_are_exact() const
    {
        count_audit audit;
        if (!audit_open(&audit, &ctx)) return false;
        audit_list(&audit, topo.edge_err_list);
        edge_tbl_audit(&audit, topo.edge_errs);
        return audit_close(&audit, stderr) == 0;
    }

    /// Links, holders and the absence of collapsed triangles, as every topology step leaves them.
    void expect_sound()
    {
        EXPECT_EQ(err, err_none);
        EXPECT_TRUE(holders_are_exact());
        EXPECT_TRUE(links_are_mutual());
    }
};

/// A closed cube of 12 triangles.
constexpr const char* k_cube_points = "a 0 0 0  b 1 0 0  c 1 1 0  d 0 1 0 "
                                      "e 0 0 1  f 1 0 1  g 1 1 1  h 0 1 1";
constexpr const char* k_cube_trs = "acb adc efg egh abf afe bcg bgf cdh chg dae dhe";

} // namespace velmora
