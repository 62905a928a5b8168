#include "reduce_fixture.h"

#include "mesh/measure.h"
#include "plg/boundary.h"
#include "plg/plg.h"
#include "reduce/classify.h"
#include "reduce/fan.h"
#include "reduce/normals.h"

#include <gtest/gtest.h>

namespace velmora {

reduce_mesh::reduce_mesh(const std::string& points, const std::string& triangles)
    : mesh_fixture(points.c_str(), triangles.c_str())
{
    link_all();
}

reduce_mesh::reduce_mesh(const std::vector<point>& points, const std::vector<corners>& triangles)
    : mesh_fixture(points, triangles)
{
    link_all();
}

reduce_mesh::~reduce_mesh()
{
    plg_list_free(&topo.plg_list);
    vtx_table_free(&table);
}

void reduce_mesh::enter()
{
    for (const tr_h t : trs)
        if (rec(t).refs != 0) tr_recompute_nrm(&rec(t), true, nullptr);
    if (!table.infos) {
        topo.table = &table;
        ASSERT_EQ(vtx_table_init(tr_count(), &table, &err), stage_ok);
        ASSERT_EQ(vtx_table_fill(&table, &ctx), stage_ok);
        letters.assign(table.count, '?');
        for (std::size_t t = 0; t < trs.size(); ++t)
            for (std::size_t i = 0; rec(trs[t]).refs != 0 && i < 3; ++i)
                letters[rec(rec(trs[t]).vtx[i]).tbl_index - 1] = names[t][i];
    }
    ASSERT_EQ(vtx_table_refresh(&table, &err, &ctx), stage_ok);
}

void reduce_mesh::classify()
{
    enter();
    if (params.mode == mode_aspect) {
        vtx_dev_all(&table);
        ASSERT_EQ(vtx_table_sort(&table), stage_ok);
    }
    vtx_nrm_all(&table);
    ASSERT_EQ(trace_boundaries(&err, &ctx), stage_ok);
    plg_vtx_nrm_all(topo);
    vtx_classify_all(&table, params);
}

pass_counts reduce_mesh::reduce()
{
    pass_counts counts;
    reduce_passes(&table, params, &counts);
    return counts;
}

void reduce_mesh::only(const std::string& free_letters)
{
    for (std::uint32_t i = 0; i < table.count; ++i) {
        const bool is_free = free_letters.find(letters[i]) != std::string::npos;
        table.types[i] = is_free ? vtx_closed : vtx_locked;
    }
}

std::string reduce_mesh::fan(char letter)
{
    std::string list;
    for (const tr_h t : fan_of(table, info(letter)))
        list += (list.empty() ? "" : " ") + name(t);
    return list;
}

std::string reduce_mesh::all_of(vtx_type type) const
{
    std::string list;
    for (std::uint32_t i = 0; i < table.count; ++i)
        if (table.types[i] == type) list += letters[i];
    return list;
}

char reduce_mesh::target(char letter)
{
    return letters[rec(info(letter).vtx).tbl_index - 1];
}

bool reduce_mesh::holders_are_exact() const
{
    count_audit audit;
    if (!audit_open(&audit, &ctx)) return false;
    audit_list(&audit, topo.lone_list);
    for (std::uint32_t i = 0; i < table.count; ++i)
        audit_vtx(&audit, table.infos[i].vtx);
    return audit_close(&audit, stderr) == 0;
}

std::string sheet_points(int size, bool upright)
{
    std::string list;
    for (int i = 0; i < size * size; ++i) {
        const std::string row = std::to_string(i / size);
        list += std::string(1, static_cast<char>('A' + i)) + " " + std::to_string(i % size) + " ";
        list += upright ? "0 " + row + " " : row + " 0 ";
    }
    return list;
}

std::string sheet_trs(int size)
{
    std::string list;
    for (int i = 0; i < (size - 1) * size; ++i) {
        if (i % size == size - 1) continue;
        const char a = static_cast<char>('A' + i);
        const char b = static_cast<char>(a + 1);
        const char c = static_cast<char>(b + size);
        const char d = static_cast<char>(a + size);
        list += {a, b, c, ' ', a, c, d, ' '};
    }
    return list;
}

} // namespace velmora
