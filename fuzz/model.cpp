#include "model.h"

#include "files/kvd_layout.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <map>

namespace velmora {

namespace {

constexpr std::size_t k_most_tris = 300;
constexpr float k_inf = std::numeric_limits<float>::infinity();

// How large the model is, and in which numbers the odd parts lie.
constexpr float k_scales[] = {1.0f, 0.1f, 1e-3f, 1e3f, 1e9f, 1e-20f, 1e-38f, 1e30f, 1e38f};
constexpr float k_odd[] = {0.0f,  -0.0f, 1e-7f,  1e-42f, 1e10f, -1e10f, 1e38f,       -1e38f,
                           k_inf, 1e20f, -1e-6f, 0.5f,   1.0f,  1e-10f, 16777216.0f, 3.4e38f};

class builder {
  public:
    builder(byte_source* bytes, fuzz_model* model) : bytes_(bytes), model_(model)
    {
    }

    void add_part();

  private:
    std::uint32_t point(float x, float y, float z)
    {
        model_->points.push_back({x, y, z});
        return static_cast<std::uint32_t>(model_->points.size() - 1);
    }
    void tri(std::uint32_t a, std::uint32_t b, std::uint32_t c)
    {
        if (model_->tris.size() < k_most_tris) model_->tris.push_back({a, b, c});
    }
    float lattice(std::uint32_t size)
    {
        return static_cast<float>(bytes_->below(size));
    }

    void soup();
    void sheet();
    void fan();
    void shells();
    void band();
    void odd();

    byte_source* bytes_;
    fuzz_model* model_;
};

// Any triangle of a few points: crowded edges, equal corners, equal triangles.
void builder::soup()
{
    const std::uint32_t lattice_size = 2 + bytes_->below(6);
    const std::uint32_t count = 3 + bytes_->below(14);
    const auto first = static_cast<std::uint32_t>(model_->points.size());
    for (std::uint32_t i = 0; i < count; ++i) {
        const float x = lattice(lattice_size);
        const float y = lattice(lattice_size);
        point(x, y, lattice(lattice_size));
    }
    for (std::uint32_t n = 1 + bytes_->below(48); n > 0; --n) {
        const std::uint32_t a = first + bytes_->below(count);
        const std::uint32_t b = first + bytes_->below(count);
        tri(a, b, first + bytes_->below(count));
    }
}

// A field of heights, closed below or not, with some triangles turned over.
void builder::sheet()
{
    const std::uint32_t nx = 1 + bytes_->below(8);
    const std::uint32_t ny = 1 + bytes_->below(8);
    const bool rough = bytes_->next() & 1;
    const std::uint32_t turned = bytes_->below(32);
    const auto first = static_cast<std::uint32_t>(model_->points.size());
    for (std::uint32_t i = 0; i <= nx; ++i)
        for (std::uint32_t j = 0; j <= ny; ++j)
            point(static_cast<float>(i), static_cast<float>(j), rough ? lattice(256) / 64 : 0.0f);
    for (std::uint32_t i = 0; i < nx * ny; ++i) {
        const std::uint32_t a = first + i / ny * (ny + 1) + i % ny;
        const std::uint32_t c = a + ny + 2;
        tri(a, a + ny + 1, c);
        if (i % 32 == turned && turned != 0)
            tri(a, a + 1, c);
        else
            tri(a, c, a + 1);
    }
}

void builder::fan()
{
    const std::uint32_t count = 2 + bytes_->below(200);
    const bool closed = bytes_->next() & 1;
    const float height = lattice(8);
    const std::uint32_t hub = point(0.0f, 0.0f, height);
    const auto first = static_cast<std::uint32_t>(model_->points.size());
    for (std::uint32_t i = 0; i < count; ++i) {
        const double turn = 6.28 * i / count;
        point(static_cast<float>(4 * std::cos(turn)), static_cast<float>(4 * std::sin(turn)), 0.0f);
    }
    for (std::uint32_t i = 0; i < count; ++i)
        if (closed || i + 1 < count) tri(hub, first + i, first + (i + 1) % count);
}

// Tetrahedra in each other, or beside each other.
void builder::shells()
{
    const std::uint32_t count = 1 + bytes_->below(12);
    const float apart = lattice(3);
    const bool inwards = bytes_->next() & 1;
    for (std::uint32_t i = 0; i < count; ++i) {
        const float r = static_cast<float>(i + 1);
        const float at = apart * r;
        const std::uint32_t a = point(at + r, at + r, at + r);
        const std::uint32_t b = point(at + r, at - r, at - r);
        const std::uint32_t c = point(at - r, at + r, at - r);
        const std::uint32_t d = point(at - r, at - r, at + r);
        const bool in = inwards && i % 2 == 0;
        tri(a, in ? c : b, in ? b : c);
        tri(a, in ? d : c, in ? c : d);
        tri(a, in ? b : d, in ? d : b);
        tri(b, in ? c : d, in ? d : c);
    }
}

// Closes on itself, with a twist or without.
void builder::band()
{
    const std::uint32_t count = 3 + bytes_->below(40);
    const std::uint32_t half_turns = bytes_->below(4);
    const auto first = static_cast<std::uint32_t>(model_->points.size());
    for (std::uint32_t i = 0; i < count; ++i) {
        const double turn = 6.28318530718 * i / count;
        const double tilt = turn * half_turns / 2;
        for (const double side : {-1.0, 1.0}) {
            const double r = 4 + side * std::cos(tilt);
            point(static_cast<float>(r * std::cos(turn)), static_cast<float>(r * std::sin(turn)),
                  static_cast<float>(side * std::sin(tilt)));
        }
    }
    for (std::uint32_t i = 0; i < count; ++i) {
        const bool crossed = i + 1 == count && half_turns % 2 == 1;
        const std::uint32_t a = first + 2 * i;
        const std::uint32_t next = i + 1 == count ? first : a + 2;
        tri(a, a + 1, next + (crossed ? 1 : 0));
        tri(a + 1, next + (crossed ? 0 : 1), next + (crossed ? 1 : 0));
    }
}

void builder::odd()
{
    const std::uint32_t count = 3 + bytes_->below(6);
    const auto first = static_cast<std::uint32_t>(model_->points.size());
    for (std::uint32_t i = 0; i < count; ++i) {
        const float x = k_odd[bytes_->below(16)];
        const float y = k_odd[bytes_->below(16)];
        point(x, y, k_odd[bytes_->below(16)]);
    }
    for (std::uint32_t i = 0; i + 2 < count; ++i)
        for (std::uint32_t j = i + 1; j + 1 < count; ++j)
            tri(first + i, first + j, first + j + 1);
}

void builder::add_part()
{
    switch (bytes_->below(6)) {
    case 0:
        return soup();
    case 1:
        return sheet();
    case 2:
        return fan();
    case 3:
        return shells();
    case 4:
        return band();
    default:
        return odd();
    }
}

void scale_from(fuzz_model* model, std::size_t first, float scale, float shift)
{
    for (std::size_t i = first; i < model->points.size(); ++i)
        for (float& c : model->points[i])
            c = c * scale + shift;
}

void put(std::string* bytes, const void* from, std::size_t size)
{
    bytes->append(static_cast<const char*>(from), size);
}

void put_word(std::string* bytes, std::uint32_t word)
{
    put(bytes, &word, sizeof word);
}

void put_kvd_header_of(std::string* bytes, kvd_id id, std::uint32_t kind, std::size_t count)
{
    unsigned char header[k_kvd_header_size];
    kvd_put_header(header, {id, 0, kind, static_cast<std::uint32_t>(count)});
    put(bytes, header, sizeof header);
}

using edge_key = std::pair<std::uint32_t, std::uint32_t>;

// The first triangle that runs along each edge in each direction.
std::map<edge_key, std::uint32_t> edges_of(const fuzz_model& model)
{
    std::map<edge_key, std::uint32_t> edges;
    for (std::uint32_t t = 0; t < model.tris.size(); ++t)
        for (std::size_t i = 0; i < 3; ++i)
            edges.insert({{model.tris[t][i], model.tris[t][(i + 1) % 3]}, t});
    return edges;
}

enum class links {
    none,
    right,
    wild
};

std::uint32_t link_of(const fuzz_model& model, const std::map<edge_key, std::uint32_t>& edges,
                      std::size_t t, std::size_t i, links kind, byte_source* bytes)
{
    if (kind == links::none) return k_kvd_none;
    if (kind == links::wild)
        return bytes->below(static_cast<std::uint32_t>(model.tris.size() % 256) + 1);
    const auto found = edges.find({model.tris[t][(i + 1) % 3], model.tris[t][i]});
    return found == edges.end() ? k_kvd_none : found->second;
}

} // namespace

std::uint8_t byte_source::next()
{
    if (left == 0) return 0;
    --left;
    return *at++;
}

fuzz_model make_model(byte_source* bytes)
{
    fuzz_model model;
    builder parts(bytes, &model);
    const float scale = k_scales[bytes->below(9)];
    do {
        const std::size_t first = model.points.size();
        const std::uint8_t place = bytes->next();
        parts.add_part();
        scale_from(&model, first, scale, scale * static_cast<float>(place / 16) / 2);
    } while (bytes->left > 0 && model.tris.size() < k_most_tris);
    return model;
}

std::string as_binary_stl(const fuzz_model& model)
{
    std::string stl(80, ' ');
    put_word(&stl, static_cast<std::uint32_t>(model.tris.size()));
    for (const auto& tri : model.tris) {
        stl.append(12, '\0');
        for (const std::uint32_t p : tri)
            put(&stl, model.points[p].data(), 12);
        stl.append(2, '\0');
    }
    return stl;
}

// Text has no word for infinity, but numbers that are too large.
static double sayable(float c)
{
    return std::isinf(c) ? std::copysign(1e99, static_cast<double>(c)) : static_cast<double>(c);
}

std::string as_ascii_stl(const fuzz_model& model)
{
    std::string text = "solid\n";
    char line[128];
    for (const auto& tri : model.tris) {
        text += "facet normal 0 0 0\nouter loop\n";
        for (const std::uint32_t p : tri) {
            const auto& c = model.points[p];
            std::snprintf(line, sizeof line, "vertex %.9e %.9e %.9e\n", sayable(c[0]),
                          sayable(c[1]), sayable(c[2]));
            text += line;
        }
        text += "endloop\nendfacet\n";
    }
    return text + "endsolid\n";
}

std::string as_kvd(const fuzz_model& model, byte_source* bytes)
{
    const auto kind = static_cast<links>(bytes->below(3));
    const std::uint32_t spice = bytes->below(16);
    const bool marked = spice % 2 == 1;
    const auto edges = edges_of(model);
    std::string file;
    put_kvd_header_of(&file, kvd_id_model, kvd_type_model, 1);
    put_kvd_header_of(&file, kvd_id_vtxs, k_kvd_vtx_size, model.points.size());
    for (const auto& p : model.points)
        put(&file, p.data(), 12);
    if (spice >= 14) std::memset(file.data() + file.size() - 12, 0xff, 4); // not a number
    put_kvd_header_of(&file, kvd_id_trs, k_kvd_tr_size, model.tris.size());
    for (std::size_t t = 0; t < model.tris.size(); ++t) {
        unsigned char record[k_kvd_tr_size];
        kvd_put_default_tr(record);
        put_u32(record + kvd_tr_id, marked ? bytes->below(4) : 0);
        for (std::size_t i = 0; i < 3; ++i) {
            put_u32(record + kvd_tr_vtx + 4 * i, model.tris[t][i]);
            put_u32(record + kvd_tr_nbr + 4 * i, link_of(model, edges, t, i, kind, bytes));
        }
        if (marked) std::memset(record + kvd_tr_flags, bytes->next(), 8);
        put(&file, record, sizeof record);
    }
    return file;
}

} // namespace velmora
