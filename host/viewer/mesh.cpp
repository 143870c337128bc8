// Reads models of records, and packs any model for the page.
#include "mesh.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "answers.h"
#include "scansteps/vertex_lists.h"

namespace scansteps::viewer {

namespace {

std::vector<std::uint8_t> colourBytes(std::span<const float> colours)
{
    std::vector<std::uint8_t> bytes(colours.size());
    std::transform(colours.begin(), colours.end(), bytes.begin(),
                   [](float c) { return c > 0 ? std::uint8_t(std::min(c, 255.0F)) : std::uint8_t{0}; });
    return bytes;
}

template <class T>
std::vector<T> listOf(std::span<const T> elements)
{
    return {elements.begin(), elements.end()};
}

// Textures whose bytes are in the record; those under handles have not come along.
void readTextures(const Struct& record, Mesh& mesh)
{
    const varitype* images = record.find("images");
    if (images == nullptr || images->kind() != Kind::StructArray) return;
    for (const varitype& image : images->as<StructArray>()) {
        Mesh::Texture texture;
        if (image.hasPayload() && image.has("data") && image["data"].kind() == Kind::Array) {
            const varitype data = image["data"];
            const Array& pixels = data.as<Array>();
            const auto bytes = pixels.elements<std::uint8_t>();
            if (pixels.dim(0) % 3 == 0 && !bytes.empty() && pixels.dim(0) / 3 <= 65500 &&
                bytes.size() / pixels.dim(0) <= 65500)
                texture = {listOf(bytes), pixels.dim(0) / 3, std::uint32_t(bytes.size() / pixels.dim(0))};
        }
        mesh.textures.push_back(std::move(texture));
    }
}

// One view a triangle, from a list for triangles or for vertices.
void readViews(const varitype& tria, Mesh& mesh)
{
    if (!tria.has("Views")) return;
    const auto views = intList(tria, "Views");
    const varitype entry = tria["Views"];
    const std::size_t triangles = mesh.indices.size() / 3, vertices = mesh.positions.size() / 3;
    const bool isPerVertex = entry.as<Array>().dim(1) == vertices && !(triangles == 1 && views.size() == 1);
    mesh.views.resize(triangles);
    for (std::size_t i = 0; i < triangles; ++i) {
        const std::size_t at = isPerVertex ? mesh.indices[3 * i] : i;
        if (at >= views.size()) throw "\"Views\" has too few elements";
        mesh.views[i] = views[at];
    }
}

void readMesh(const Struct& record, const varitype& tria, Mesh& mesh)
{
    mesh.positions = listOf(floatList(tria, "Vertices", 3));
    mesh.indices = listOf(indexList(tria, "Indices", 3));
    const std::size_t vertices = mesh.positions.size() / 3;
    if (std::any_of(mesh.indices.begin(), mesh.indices.end(),
                    [&](std::uint32_t i) { return i >= vertices; })) {
        mesh.indices.clear();
        throw "an index lies outside the vertices";
    }
    if (tria.has("Tricolors")) {
        mesh.faceColours = colourBytes(floatList(tria, "Tricolors", 3));
        if (mesh.faceColours.size() != mesh.indices.size()) mesh.faceColours.clear();
    }
    if (!tria.has("Pixels")) return;
    mesh.pixels = listOf(floatList(tria, "Pixels", 2));
    if (mesh.pixels.size() != 2 * vertices) mesh.pixels.clear();
    readViews(tria, mesh);
    readTextures(record, mesh);
}

class Packer
{
  public:
    template <class T>
    void add(const char* name, const std::vector<T>& list)
    {
        if (list.empty()) return;
        lists[name] = {payload.size(), list.size()};
        const auto* bytes = reinterpret_cast<const std::uint8_t*>(list.data());
        payload.insert(payload.end(), bytes, bytes + list.size() * sizeof(T));
        payload.resize((payload.size() + 3) / 4 * 4);
    }
    nlohmann::json lists = nlohmann::json::object();
    Bytes payload;
};

// Least and greatest coordinates of what is finite.
nlohmann::json boundsOf(const std::vector<float>& positions)
{
    constexpr float kInfinite = std::numeric_limits<float>::infinity();
    float low[3] = {kInfinite, kInfinite, kInfinite}, high[3] = {-kInfinite, -kInfinite, -kInfinite};
    for (std::size_t i = 0; i < positions.size(); ++i)
        if (std::isfinite(positions[i])) {
            low[i % 3] = std::min(low[i % 3], positions[i]);
            high[i % 3] = std::max(high[i % 3], positions[i]);
        }
    for (std::size_t axis = 0; axis < 3; ++axis)
        if (low[axis] > high[axis]) low[axis] = high[axis] = 0;
    return {{"low", low}, {"high", high}};
}

}  // namespace

Mesh meshOf(const Struct& record)
{
    Mesh mesh;
    try {
        if (const varitype* tria = record.find("tria")) {
            readMesh(record, *tria, mesh);
        } else if (const varitype* pns = record.find("pns")) {
            mesh.positions = listOf(floatList(*pns, "Points", 3));
            if (pns->has("Colors")) mesh.vertexColours = colourBytes(floatList(*pns, "Colors", 3));
            if (mesh.vertexColours.size() != mesh.positions.size()) mesh.vertexColours.clear();
        }
    } catch (const char* text) {
        mesh.error = text;
    }
    return mesh;
}

std::shared_ptr<const Bytes> meshAnswer(nlohmann::json head, const Mesh& mesh)
{
    Packer packer;
    packer.add("positions", mesh.positions);
    packer.add("indices", mesh.indices);
    packer.add("vertexColours", mesh.vertexColours);
    packer.add("faceColours", mesh.faceColours);
    packer.add("normals", mesh.normals);
    packer.add("pixels", mesh.pixels);
    packer.add("uv", mesh.uv);
    packer.add("views", mesh.views);
    nlohmann::json textures = nlohmann::json::array();
    for (const Mesh::Texture& texture : mesh.textures) {
        nlohmann::json one = {{"width", texture.width}, {"height", texture.height}};
        const Bytes file = texture.rgb.empty()
                               ? texture.file
                               : encodeJpeg(texture.rgb, int(texture.width), int(texture.height), 3, 92);
        if (!file.empty()) {
            one["file"] = {packer.payload.size(), file.size()};
            packer.payload.insert(packer.payload.end(), file.begin(), file.end());
            packer.payload.resize((packer.payload.size() + 3) / 4 * 4);
        }
        textures.push_back(std::move(one));
    }
    head["model"] = {{"lists", packer.lists}, {"textures", textures}, {"bounds", boundsOf(mesh.positions)}};
    if (!mesh.error.empty()) head["model"]["error"] = mesh.error;
    return envelope(head, packer.payload);
}

}  // namespace scansteps::viewer
