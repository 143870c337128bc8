#include "export/stl_writer.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <memory>

#include "export/vertex_normals.h"
#include "scansteps/error.h"

namespace scansteps {

namespace {

static_assert(std::endian::native == std::endian::little, "entries are copied as they lie in memory");

void writeHeader(OutputFile& file, std::uint32_t triangles)
{
    char header[84] = "scansteps " SCANSTEPS_VERSION " binary STL";
    std::memcpy(header + 80, &triangles, 4);
    file.write(std::string_view(header, sizeof header));
}

}  // namespace

IndexRange writeStl(OutputFile& file, const Mesh& mesh)
{
    const IndexRange range = checkGeometry(mesh);
    checkColourCount(mesh.colours, mesh.triangleCount(), "Tricolors", "triangles");
    if (mesh.triangleCount() > 0xFFFFFFFF) fail("\"Indices\": more triangles than STL can count");
    const auto normals = std::make_unique_for_overwrite<Normal[]>(mesh.vertexCount());
    const std::span<Normal> view(normals.get(), mesh.vertexCount());
    vertexNormals(mesh, view);
    writeHeader(file, static_cast<std::uint32_t>(mesh.triangleCount()));
    constexpr std::size_t kBatch = OutputFile::kBlock / kStlEntrySize;
    for (std::size_t k = 0; k < mesh.triangleCount(); k += kBatch) {
        const std::size_t count = std::min(kBatch, mesh.triangleCount() - k);
        char* out = file.room(count * kStlEntrySize);
        if (!stlEntries(mesh, view, k, count, out))  // cheaper here than in a pass of its own
            checkColours(mesh.colours, mesh.triangleCount(), "Tricolors", "triangles");
        file.advance(out + count * kStlEntrySize);
    }
    return range;
}

}  // namespace scansteps
