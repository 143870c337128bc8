// Writes the record tree of an OpenFlight file.
#include "mesh/flt_writer.h"

#include <limits>
#include <vector>

#include "mesh/flt_records.h"
#include "scansteps/error.h"

namespace scansteps::mesh {

namespace {

using flt::Fields;
namespace opcode = flt::opcode;

constexpr std::uint32_t kPackedColours = 0x40000000;     // header flag
constexpr std::uint32_t kPackedFaceColour = 0x10000000;  // face flag
constexpr std::uint16_t kPackedVertexColour = 0x1000;    // vertex flag
constexpr std::uint8_t kTwoSided = 1;                    // draw type: solid, back faces too

/// Buffer size for the largest record.
constexpr std::size_t kRecord = 8192;

void writeHeader(AtomicFile& file)
{
    Fields f(file.room(kRecord), opcode::kHeader, flt::kHeaderSize);
    f.text("db", 8).i32(flt::kRevision).i32(0).skip(32);         // edit revision, its date
    f.i16(2).i16(1).i16(2).i16(1).i16(1);                        // next free node numbers, unit multiplier
    f.u8(0).u8(0).u32(kPackedColours).skip(24).i32(0).skip(28);  // metres, texture white, flags, flat earth
    f.i16(1).i16(1).i32(100);                             // next DOF, double-precision vertices, origin
    f.skip(32).i16(1).i16(1).skip(8);                     // database corner and extent, next sound, path
    f.i16(1).i16(1).i16(1).i16(1).skip(4);                // next clip, text, BSP, switch
    f.skip(64).i16(1).i16(1).i16(1).i16(1).skip(8);       // corners in degrees; next light, point, road, CAT
    f.i32(0).i16(1).i16(1).i16(0).skip(6);                // WGS 1984, next adaptive, curve, UTM zone
    f.f64(0).f64(0).i16(1).i16(1).skip(4).f64(0).f64(0);  // delta z, radius, next mesh, light system, axes
    file.advance(f.end());
}

/// Faces and vertices have packed colours, so all palette entries are white.
void writeColourPalette(AtomicFile& file)
{
    Fields f(file.room(kRecord), opcode::kColourPalette, flt::kColourPaletteSize);
    f.skip(128);
    for (int i = 0; i < 1024; ++i) f.u32(flt::kWhite);
    file.advance(f.end());
}

void writeTexturePalette(AtomicFile& file, const std::string& base, int pages)
{
    for (int page = 0; page < pages; ++page) {
        const std::string name = textureName(base, page);
        if (name.size() >= 200) fail("OpenFlight: a texture's name is limited to 199 characters");
        Fields f(file.room(kRecord), opcode::kTexturePalette, flt::kTexturePaletteSize);
        f.text(name, 200).i32(page).i32(0).i32(0);
        file.advance(f.end());
    }
}

std::uint32_t colourOf(std::span<const float> colours, std::size_t triangle)
{
    const auto component = [&](std::size_t i) {
        return static_cast<std::uint32_t>(static_cast<int>(colours[3 * triangle + i]));
    };
    return flt::packColour(component(0), component(1), component(2));
}

/// Mean colour of the triangles of each vertex, truncated; white for vertices without triangles or colours.
std::vector<std::uint32_t> vertexColours(const Mesh& mesh)
{
    struct Sum
    {
        float rgb[3];
        std::uint32_t count;
    };
    std::vector<Sum> sums(mesh.vertexCount());
    if (!mesh.colours.empty())
        for (std::size_t c = 0; c < mesh.indices.size(); ++c) {
            Sum& sum = sums[mesh.indices[c]];
            for (std::size_t i = 0; i < 3; ++i) sum.rgb[i] += mesh.colours[c / 3 * 3 + i];
            ++sum.count;
        }
    std::vector<std::uint32_t> colours(mesh.vertexCount(), flt::kWhite);
    for (std::size_t i = 0; i < colours.size(); ++i) {
        const Sum& sum = sums[i];
        const auto mean = [&](int k) {
            return static_cast<std::uint32_t>(static_cast<int>(sum.rgb[k] / static_cast<float>(sum.count)));
        };
        if (sum.count > 0) colours[i] = flt::packColour(mean(0), mean(1), mean(2));
    }
    return colours;
}

/// Writes the records of one model, with textured or coloured vertices and faces.
class SceneWriter
{
  public:
    SceneWriter(AtomicFile& file, const TexturedModel& model, const TextureLayout& layout, bool textured)
        : file_(file), mesh_(model.mesh), layout_(layout), textured_(textured), width_(model.settings.width)
    {
    }

    void writeVertices()
    {
        const std::size_t count = mesh_.vertexCount() + layout_.extra.size();
        const std::size_t bytes = flt::kVertexPaletteSize + count * vertexSize();
        if (bytes > std::numeric_limits<std::int32_t>::max())
            fail("OpenFlight: too many vertices for the format");
        Fields palette(file_.room(kRecord), opcode::kVertexPalette, flt::kVertexPaletteSize);
        file_.advance(palette.i32(static_cast<std::int32_t>(bytes)).end());
        const auto colours = textured_ ? std::vector<std::uint32_t>() : vertexColours(mesh_);
        for (std::size_t i = 0; i < count; ++i) {
            const std::size_t vertex = i < mesh_.vertexCount() ? i : layout_.extra[i - mesh_.vertexCount()];
            writeVertex(i, vertex, textured_ ? flt::kWhite : colours[vertex]);
        }
    }

    void writeTree()
    {
        Fields group(level(opcode::kPush), opcode::kGroup, flt::kGroupSize);
        file_.advance(group.text("g1", 8).skip(flt::kGroupSize - 12).end());
        file_.advance(level(opcode::kPush));
        std::size_t k = 0;
        for (int page = 0; page < layout_.pages; ++page) {
            Fields object(file_.room(kRecord), opcode::kObject, flt::kObjectSize);
            file_.advance(object.text("o" + std::to_string(page + 1), 8).skip(flt::kObjectSize - 12).end());
            file_.advance(level(opcode::kPush));
            const std::size_t end = layout_.order.empty() ? mesh_.triangleCount()
                                                          : layout_.pageEnd[static_cast<std::size_t>(page)];
            for (; k < end; ++k) writeFace(layout_.order.empty() ? k : layout_.order[k], page);
            file_.advance(level(opcode::kPop));
        }
        file_.advance(level(opcode::kPop));
        file_.advance(level(opcode::kPop));
    }

  private:
    std::uint16_t vertexSize() const { return textured_ ? flt::kVertexColourUvSize : flt::kVertexColourSize; }

    /// Writes a push or pop record and returns the address of the next record.
    char* level(std::uint16_t code) { return Fields(file_.room(kRecord), code, flt::kLevelSize).end(); }

    void writeVertex(std::size_t number, std::size_t vertex, std::uint32_t colour)
    {
        Fields f(file_.room(kRecord), textured_ ? opcode::kVertexColourUv : opcode::kVertexColour,
                 vertexSize());
        f.u16(0).u16(kPackedVertexColour);
        for (std::size_t i = 0; i < 3; ++i) f.f64(static_cast<double>(mesh_.vertices[3 * vertex + i]));
        if (textured_) {
            const std::span<const float> positions =
                layout_.positions.empty() ? mesh_.pixels : layout_.positions;
            const float w = static_cast<float>(width_);
            f.f32((positions[2 * number] + 0.5F) / w).f32((w - 1 - positions[2 * number + 1] + 0.5F) / w);
        }
        file_.advance(f.u32(colour).u32(0xFFFFFFFF).end());
    }

    void writeFace(std::size_t triangle, int page)
    {
        const bool coloured = !textured_ && !mesh_.colours.empty();
        Fields f(file_.room(kRecord), opcode::kFace, flt::kFaceSize);
        f.skip(8).i32(0).i16(0).u8(kTwoSided).u8(0).u16(0).u16(0).u8(0).u8(0);  // unnamed; infrared, priority
        f.i16(-1)
            .i16(textured_ ? static_cast<std::int16_t>(page) : std::int16_t{-1})
            .i16(-1);  // detail, texture, material
        f.i16(0).i16(0).i32(0).u16(0).u8(0).u8(
            0);                                  // surface and feature codes, transparency, LOD, line style
        f.u32(kPackedFaceColour).u8(0).skip(7);  // light mode 0: the face's colour, unlit
        f.u32(coloured ? colourOf(mesh_.colours, triangle) : flt::kWhite).u32(flt::kWhite);
        f.i16(-1).i16(0).u32(0xFFFFFFFF).u32(0xFFFFFFFF).i16(0).i16(-1);  // mapping, colour indices, shader
        f = Fields(Fields(f.end(), opcode::kPush, flt::kLevelSize).end(), opcode::kVertexList,
                   flt::kVertexListSize);
        for (std::size_t i = 0; i < 3; ++i) {
            const std::size_t corner = 3 * triangle + i;
            const std::size_t vertex =
                layout_.corners.empty() ? mesh_.indices[corner] : layout_.corners[corner];
            f.u32(static_cast<std::uint32_t>(flt::kVertexPaletteSize + vertex * vertexSize()));
        }
        file_.advance(Fields(f.end(), opcode::kPop, flt::kLevelSize).end());
    }

    AtomicFile& file_;
    const Mesh& mesh_;
    const TextureLayout& layout_;
    bool textured_;
    int width_;
};

}  // namespace

bool saveFlt(const std::string& path, const TexturedModel& model)
{
    const TextureLayout layout = layOut(model);
    const Mesh& mesh = model.mesh;
    if (!mesh.colours.empty()) checkColours(mesh.colours, mesh.triangleCount(), "Tricolors", "triangles");
    const bool textured = !model.pictures.empty() && !mesh.pixels.empty();
    const std::string base = baseName(path, ".flt", ".FLT");
    AtomicFile file(path);
    if (!isModelOpen(file)) return false;
    std::vector<std::unique_ptr<AtomicFile>> pages;
    if (textured) pages = writePages(model, layout, folderOf(path) + base);
    writeHeader(file);
    writeColourPalette(file);
    if (textured) writeTexturePalette(file, base, layout.pages);
    SceneWriter scene(file, model, layout, textured);
    scene.writeVertices();
    scene.writeTree();
    commitModel(pages, {&file});
    return true;
}

}  // namespace scansteps::mesh
