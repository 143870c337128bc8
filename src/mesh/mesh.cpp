// Validation of meshes and point clouds.
#include "mesh/mesh.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "scansteps/error.h"

namespace scansteps::mesh {

namespace {

// The checks start with branch-free loops that compilers vectorise: a valid mesh costs one pass at memory
// speed, and only an invalid one is searched for the offending entry.

/// Largest bit pattern. Patterns of floats are ordered like their magnitudes; a sign bit not removed by
/// `mask` makes them larger than any positive number.
std::uint32_t largestBits(std::span<const float> values, std::uint32_t mask)
{
    std::uint32_t largest = 0;
    for (const float v : values) largest = std::max(largest, std::bit_cast<std::uint32_t>(v) & mask);
    return largest;
}

void checkFinite(std::span<const float> values, const char* entry)
{
    constexpr std::uint32_t kInfinite = 0x7F800000;
    if (largestBits(values, 0x7FFFFFFF) < kInfinite) return;
    const auto bad = std::find_if_not(values.begin(), values.end(), [](float v) { return std::isfinite(v); });
    failf("\"%s\": entry %lld is not finite", entry, static_cast<long long>((bad - values.begin()) / 3));
}

void checkTriples(std::size_t size, const char* entry)
{
    if (size % 3 != 0) failf("\"%s\" has %zu values, not a multiple of 3", entry, size);
}

}  // namespace

IndexRange rangeOf(std::span<const std::uint32_t> indices)
{
    IndexRange range;
    for (const std::uint32_t i : indices) {
        range.smallest = std::min(range.smallest, i);
        range.largest = std::max(range.largest, i);
    }
    return range;
}

void checkVertices(const Mesh& mesh)
{
    checkTriples(mesh.vertices.size(), "Vertices");
    checkTriples(mesh.indices.size(), "Indices");
    if (mesh.vertexCount() > 0x7FFFFFFF) fail("\"Vertices\": more than 2147483647 entries");
    checkFinite(mesh.vertices, "Vertices");
}

IndexRange checkGeometry(const Mesh& mesh)
{
    checkVertices(mesh);
    const IndexRange range = rangeOf(mesh.indices);
    if (mesh.indices.empty() || range.largest < mesh.vertexCount()) return range;
    const auto outside = [&](std::uint32_t i) { return i >= mesh.vertexCount(); };
    const auto bad = std::find_if(mesh.indices.begin(), mesh.indices.end(), outside);
    failf("\"Indices\": entry %lld holds %lld, outside the %zu entries of \"Vertices\"",
          static_cast<long long>((bad - mesh.indices.begin()) / 3),
          static_cast<long long>(static_cast<std::int32_t>(*bad)), mesh.vertexCount());
}

void checkColourCount(std::span<const float> colours, std::size_t count, const char* entry, const char* of)
{
    checkTriples(colours.size(), entry);
    if (colours.size() / 3 != count)
        failf("\"%s\" has %zu entries for %zu %s", entry, colours.size() / 3, count, of);
}

void checkColours(std::span<const float> colours, std::size_t count, const char* entry, const char* of)
{
    checkColourCount(colours, count, entry, of);
    if (largestBits(colours, 0xFFFFFFFF) < std::bit_cast<std::uint32_t>(256.0F)) return;
    const auto truncates = [](float c) { return c > -1.0F && c < 256.0F; };
    const auto bad = std::find_if_not(colours.begin(), colours.end(), truncates);
    if (bad == colours.end()) return;
    failf("\"%s\": entry %lld lies outside 0..255", entry,
          static_cast<long long>((bad - colours.begin()) / 3));
}

void checkCloud(const Cloud& cloud)
{
    checkTriples(cloud.points.size(), "Points");
    checkFinite(cloud.points, "Points");
    checkColours(cloud.colours, cloud.pointCount(), "Colors", "points");
}

}  // namespace scansteps::mesh
