#include "export/obj_writer.h"

#include <algorithm>
#include <chrono>

#include "export/text_format.h"
#include "framework/print.h"

namespace scansteps {

namespace {

/// Prints how long a stage took.
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

void writeTextureVertex(OutputFile& file, float column, float row, int width)
{
    char* out = putText(file.room(kLine), "vt ");
    const double w = width;
    out = text::putGeneral(out, (static_cast<double>(column) + 0.5) / w);
    *out++ = ' ';
    out = text::putGeneral(out, ((w - 1) - static_cast<double>(row) + 0.5) / w);
    file.advance(putText(out, " 0\n"));
}

void writeVertex(OutputFile& file, const float* xyz)
{
    char* out = file.room(kLine);
    *out++ = 'v';
    for (int i = 0; i < 3; ++i) {
        *out++ = ' ';
        out = text::putGeneral(out, static_cast<double>(xyz[i]));
    }
    *out++ = '\n';
    file.advance(out);
}

void writeVertices(OutputFile& file, const TexturedModel& model, const TextureLayout& layout)
{
    const Mesh& mesh = model.mesh;
    const std::span<const float> positions = layout.positions.empty() ? mesh.pixels : layout.positions;
    const auto writePosition = [&](std::size_t i) {
        const bool known = !positions.empty();
        writeTextureVertex(file, known ? positions[2 * i] : 0, known ? positions[2 * i + 1] : 0,
                           model.settings.width);
    };
    for (std::size_t i = 0; i < mesh.vertexCount(); ++i) {
        writeVertex(file, &mesh.vertices[3 * i]);
        writePosition(i);
    }
    for (std::size_t i = 0; i < layout.extra.size(); ++i) writePosition(mesh.vertexCount() + i);
}

/// "vertex/texture vertex ", numbers from 1.
char* putCorner(char* out, std::uint32_t vertex, std::uint32_t textureVertex)
{
    if (std::max(vertex, textureVertex) < text::kWordLimit - 1) {
        const text::Word word = text::wordOf(vertex + 1);
        out = text::put(out, word, '/');
        return text::put(out, vertex == textureVertex ? word : text::wordOf(textureVertex + 1), ' ');
    }
    out = text::putUnsigned(out, vertex + 1);
    *out++ = '/';
    out = text::putUnsigned(out, textureVertex + 1);
    *out++ = ' ';
    return out;
}

void writeFace(OutputFile& file, const std::uint32_t* vertices, const std::uint32_t* textureVertices)
{
    char* out = putText(file.room(kLine), "f ");
    for (int i = 0; i < 3; ++i) out = putCorner(out, vertices[i], textureVertices[i]);
    *out++ = '\n';
    file.advance(out);
}

void writeFaces(OutputFile& file, const Mesh& mesh, const TextureLayout& layout)
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

void writeMaterials(OutputFile& file, const std::string& base, int pages)
{
    for (int page = 0; page < pages; ++page)
        file.write("newmtl Texture_" + std::to_string(page) +
                   "\nKa 1.0 1.0 1.0\nKd 1.0 1.0 1.0\nKs 0.0 0.0 0.0\nd 1\nNs 1.0\nillum 1\nmap_Kd " +
                   textureName(base, page) + "\n");
}

}  // namespace

void writeObj(OutputFile& file, const TexturedModel& model, const TextureLayout& layout,
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
    OutputFile file(path), materials(pathBase + ".mtl");
    if (!file.isOpen() || !materials.isOpen()) return false;
    clock.stage();
    const auto pages = writePages(model, layout, pathBase);
    clock.stage();
    writeObj(file, model, layout, base);
    writeMaterials(materials, base, layout.pages);
    for (const auto& page : pages) page->commit();
    materials.commit();
    file.commit();
    clock.stage();
    return true;
}

}  // namespace scansteps
