// The reader of native models: an input as it is, from a file and from the standard input.
#include "files/kvd.h"

#include "fuzz.h"
#include "mesh/audit.h"
#include "mesh/obj_list.h"

namespace velmora {

namespace {

struct kvd_seen {
    bool done;
    std::uint32_t count;
    std::int32_t err;
    std::string written; // what was read, as a file
};

std::string list_as_file(const obj_list& list)
{
    const memory_file file(nullptr, 0);
    demand(kvd_write_model(list, file.path(), false, false) == stage_ok, "a model to be written");
    return file.bytes();
}

// Null for the standard input.
kvd_seen read_kvd(const char* path)
{
    mesh_ctx ctx;
    mesh_ctx_init(&ctx, nullptr);
    obj_list list = {};
    aabb bbox;
    kvd_seen seen = {};
    seen.done = kvd_read_model(path, &list, &seen.count, &bbox, &seen.err, &ctx) == stage_ok;
    demand(seen.count == list.count, "the count to be that of the list");
    const obj_list* const lists[] = {&list};
    demand(audit_counts(&ctx, lists, 1, nullptr) == 0, "every record to know its holders");
    seen.written = list_as_file(list);
    list_free(&list);
    demand(audit_counts(&ctx, lists, 1, nullptr) == 0, "every record to be given back");
    mesh_records_free();
    return seen;
}

kvd_seen read_kvd_from_stdin(const memory_file& file)
{
    std::FILE* const own = stdin;
    stdin = file.open("rb");
    kvd_seen seen = read_kvd(nullptr);
    std::fclose(stdin);
    stdin = own;
    return seen;
}

kvd_seen read_again(const std::string& bytes)
{
    const memory_file file(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    return read_kvd(file.path());
}

} // namespace

} // namespace velmora

// Reading turns the order round, so the second copy of a copy is the first again.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace velmora;
    const kept_log log;
    const memory_file file(data, size);
    const kvd_seen seen = read_kvd(file.path());
    const kvd_seen streamed = read_kvd_from_stdin(file);
    demand(seen.done == streamed.done && seen.written == streamed.written,
           "the same model from the standard input");
    const kvd_seen copy = read_again(seen.written);
    demand(copy.done && copy.count == seen.count, "what was written can be read");
    demand(read_again(copy.written).written == seen.written, "the same file from a copy's copy");
    return 0;
}
