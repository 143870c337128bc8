// Writes binary STL.
#include "mesh/stl_writer.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "mesh/vertex_normals.h"
#include "scansteps/error.h"

namespace scansteps::mesh {

namespace {

static_assert(std::endian::native == std::endian::little, "entries are copied as they lie in memory");

struct Free
{
    void operator()(void* memory) const { std::free(memory); }
};
using ZeroedNormals = std::unique_ptr<Normal[], Free>;

// calloc gets large blocks zeroed from the system, so that their pages are first touched when they are used.
ZeroedNormals makeNormals(std::size_t count)
{
    static_assert(alignof(Normal) <= alignof(std::max_align_t));
    ZeroedNormals normals(static_cast<Normal*>(std::calloc(std::max<std::size_t>(count, 1), sizeof(Normal))));
    if (!normals) throw std::bad_alloc();
    return normals;
}

void writeHeader(AtomicFile& file, std::uint32_t triangles)
{
    char header[84] = "scansteps " SCANSTEPS_VERSION " binary STL";
    std::memcpy(header + 80, &triangles, 4);
    file.write(std::string_view(header, sizeof header));
}

}  // namespace

IndexRange writeStl(AtomicFile& file, const Mesh& mesh)
{
    checkVertices(mesh);
    checkColourCount(mesh.colours, mesh.triangleCount(), "Tricolors", "triangles");
    if (mesh.triangleCount() > 0xFFFFFFFF) fail("\"Indices\": more triangles than STL can count");
    const ZeroedNormals normals = makeNormals(mesh.vertexCount());
    const std::span<Normal> view(normals.get(), mesh.vertexCount());
    const IndexRange range = vertexNormals(mesh, view);
    if (range.largest >= mesh.vertexCount()) checkGeometry(mesh);  // throws unless there are no triangles
    writeHeader(file, static_cast<std::uint32_t>(mesh.triangleCount()));
    constexpr std::size_t kBatch = AtomicFile::kBlock / kStlEntrySize;
    for (std::size_t k = 0; k < mesh.triangleCount(); k += kBatch) {
        const std::size_t count = std::min(kBatch, mesh.triangleCount() - k);
        char* out = file.room(count * kStlEntrySize);
        if (!stlEntries(mesh, view, k, count, out))  // cheaper than a separate pass
            checkColours(mesh.colours, mesh.triangleCount(), "Tricolors", "triangles");
        file.advance(out + count * kStlEntrySize);
    }
    return range;
}

}  // namespace scansteps::mesh
