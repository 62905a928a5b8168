// The binary reader: an input as it is, with attribute words taken in each of the three ways.
#include "fuzz.h"
#include "stl_roads.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace velmora;
    const stl_reading_seen seen =
        read_on_all_roads(data, size, {stl_format_binary, 1, false, false});
    read_on_all_roads(data, size, {stl_format_binary, 0, false, true});
    read_on_all_roads(data, size, {stl_format_binary, 0, true, false});
    demand_round_trip(seen.tris, stl_format_binary);
    demand_round_trip(seen.tris, stl_format_ascii);
    return 0;
}
