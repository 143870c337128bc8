// Writes OBJ and MTL files.
#include "mesh/obj_writer.h"

#include <algorithm>
#include <chrono>

#include "core/print.h"
#include "mesh/number_format.h"

namespace scansteps::mesh {

namespace {

/// Measures and prints the duration of each stage.
class StageClock
{
  public:
    void stage()
    {
        const auto now = Clock::now();
        const auto passed = std::chrono::duration_cast<std::chrono::milliseconds>(now - start_).count();
        print::text("time " + std::to_string(passed) + "ms\n");
        start_ = now;
    }

  private:
    using Clock = std::chrono::steady_clock;
    Clock::time_point start_ = Clock::now();
};

constexpr std::size_t kLine = 8 * text::kNumberRoom;

char* putText(char* out, std::string_view text)
{
    std::memcpy(out, text.data(), text.size());
    return out + text.size();
}

/// Writes the texture coordinates of texture vertex i on its page.
char* putTextureVertex(char* out, std::span<const float> positions, std::size_t i, int width)
{
    const double w = width;
    const float column = positions.empty() ? 0 : positions[2 * i],
                row = positions.empty() ? 0 : positions[2 * i + 1];
    out = text::putGeneral(putText(out, "vt "), (static_cast<double>(column) + 0.5) / w);
    *out++ = ' ';
    out = text::putGeneral(out, ((w - 1) - static_cast<double>(row) + 0.5) / w);
    return putText(out, " 0\n");
}

char* putVertex(char* out, const float* xyz)
{
    *out++ = 'v';
    for (int i = 0; i < 3; ++i) {
        *out++ = ' ';
        out = text::putGeneral(out, static_cast<double>(xyz[i]));
    }
    *out++ = '\n';
    return out;
}

void writeVertices(AtomicFile& file, const TexturedModel& model, const TextureLayout& layout)
{
    const Mesh& mesh = model.mesh;
    const std::span<const float> positions = layout.positions.empty() ? mesh.pixels : layout.positions;
    const int width = model.settings.width;
    for (std::size_t i = 0; i < mesh.vertexCount(); ++i) {
        char* out = putVertex(file.room(2 * kLine), &mesh.vertices[3 * i]);
        file.advance(putTextureVertex(out, positions, i, width));
    }
    for (std::size_t i = 0; i < layout.extra.size(); ++i)
        file.advance(putTextureVertex(file.room(kLine), positions, mesh.vertexCount() + i, width));
}

/// Writes "vertex/texture vertex ", numbered from 1.
char* putCorner(char* out, std::uint32_t vertex, std::uint32_t textureVertex)
{
    out = text::putUnsigned(out, vertex + 1);
    *out++ = '/';
    out = text::putUnsigned(out, textureVertex + 1);
    *out++ = ' ';
    return out;
}

void writeFace(AtomicFile& file, const std::uint32_t* vertices, const std::uint32_t* textureVertices)
{
    char* out = putText(file.room(kLine), "f ");
    out = putCorner(out, vertices[0], textureVertices[0]);
    out = putCorner(out, vertices[1], textureVertices[1]);
    out = putCorner(out, vertices[2], textureVertices[2]);
    *out++ = '\n';
    file.advance(out);
}

void writeFaces(AtomicFile& file, const Mesh& mesh, const TextureLayout& layout)
{
    std::size_t k = 0;
    for (int page = 0; page < layout.pages; ++page) {
        const std::string texture = "Texture_" + std::to_string(page) + "\n";
        file.write("g " + texture + "usemtl " + texture);
        if (layout.order.empty()) {
            for (; k < mesh.triangleCount(); ++k) writeFace(file, &mesh.indices[3 * k], &mesh.indices[3 * k]);
            continue;
        }
        for (; k < layout.pageEnd[static_cast<std::size_t>(page)]; ++k) {
            const std::size_t at = std::size_t{3} * layout.order[k];
            writeFace(file, &mesh.indices[at], &layout.corners[at]);
        }
    }
}

void writeMaterials(AtomicFile& file, const std::string& base, int pages)
{
    for (int page = 0; page < pages; ++page)
        file.write("newmtl Texture_" + std::to_string(page) +
                   "\nKa 1.0 1.0 1.0\nKd 1.0 1.0 1.0\nKs 0.0 0.0 0.0\nd 1\nNs 1.0\nillum 1\nmap_Kd " +
                   textureName(base, page) + "\n");
}

}  // namespace

void writeObj(AtomicFile& file, const TexturedModel& model, const TextureLayout& layout,
              const std::string& base)
{
    file.write("# scansteps " SCANSTEPS_VERSION "\nmtllib " + base + ".mtl\n# list of vertices\n");
    writeVertices(file, model, layout);
    file.write("# list of faces\n");
    writeFaces(file, model.mesh, layout);
}

bool saveObj(const std::string& path, const TexturedModel& model)
{
    StageClock clock;
    const TextureLayout layout = layOut(model);
    const std::string base = baseName(path, ".obj", ".OBJ");
    const std::string pathBase = folderOf(path) + base;
    AtomicFile file(path), materials(pathBase + ".mtl");
    if (!isModelOpen(file) || !isModelOpen(materials)) return false;
    clock.stage();
    const auto pages = writePages(model, layout, pathBase);
    clock.stage();
    writeObj(file, model, layout, base);
    writeMaterials(materials, base, layout.pages);
    commitModel(pages, {&materials, &file});
    clock.stage();
    return true;
}

}  // namespace scansteps::mesh
