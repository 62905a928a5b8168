// Files that lose their end while they are read.
#include "files/kvd_source.h"
#include "files/stl_fixture.h"

#include <unistd.h>

namespace velmora {

// What lay in a buffer already may still come.
TEST(shrinking, stl_ends_with_an_error_where_the_file_does)
{
    constexpr int k_tris = 2000;
    for (const std::uint32_t format : {stl_format_binary, stl_format_ascii}) {
        const std::string model =
            format == stl_format_binary
                ? binary_header(k_tris) + repeated(binary_record(0.0f), k_tris)
                : "solid\n" + repeated(k_facet, k_tris) + "endsolid\n";
        std::FILE* file = file_with(model);
        stl_stream* s = open_stl(file, format, stl_reading);
        stl_tri tri;
        for (int i = 0; i < 100; ++i)
            ASSERT_EQ(stl_get_triangle(s, &tri), 1);
        ASSERT_EQ(ftruncate(fileno(file), static_cast<off_t>(model.size() / 2)), 0);
        const read_outcome rest = drain(s);
        EXPECT_NE(rest.error, stl_err_none);
        EXPECT_LE(rest.tri_done, k_tris / 2 + 1u);
        stl_close(s);
        std::fclose(file);
    }
}

TEST(shrinking, a_native_model_ends_where_the_file_does)
{
    constexpr std::size_t k_size = 1 << 20;
    std::FILE* file = file_with(std::string(k_size, 'x'));
    kvd_source source;
    ASSERT_TRUE(kvd_source_open(file, &source));
    EXPECT_NE(kvd_take(&source, 100), nullptr);
    EXPECT_TRUE(kvd_may_hold(source, k_size - 100));
    ASSERT_EQ(ftruncate(fileno(file), k_size / 2), 0);
    EXPECT_FALSE(kvd_skip(&source, k_size - 200));
    kvd_source_close(&source);
}

} // namespace velmora
