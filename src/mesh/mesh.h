// Non-owning views of the models that the writers take, and the checks that every writer makes before it
// opens a file. Independent of records and handles.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace scansteps::mesh {

/// A triangle mesh. Only the first two members are required by every writer.
struct Mesh
{
    std::span<const float> vertices;         ///< x, y, z of N vertices
    std::span<const std::uint32_t> indices;  ///< three vertex numbers (from 0) of M triangles
    std::span<const float> colours;          ///< red, green, blue (0 to 255) of M triangles, or empty
    std::span<const float> pixels;           ///< column, row of N vertices in their source images, or empty
    std::span<const std::int32_t> views;     ///< source image of N vertices or of M triangles, or empty
    bool viewsOfTriangles = false;           ///< whether `views` belongs to triangles

    std::size_t vertexCount() const { return vertices.size() / 3; }
    std::size_t triangleCount() const { return indices.size() / 3; }
};

/// A point cloud: x, y, z and red, green, blue (0 to 255) of N points.
struct Cloud
{
    std::span<const float> points;
    std::span<const float> colours;

    std::size_t pointCount() const { return points.size() / 3; }
};

/// A picture of 8-bit red, green, blue triples, contiguous rows from top to bottom.
struct PictureView
{
    std::span<const std::uint8_t> rgb;
    int width = 0;
    int height = 0;
};

/// Smallest and largest vertex index of a mesh; the initial values if it has no triangles.
struct IndexRange
{
    std::uint32_t smallest = 1000000;
    std::uint32_t largest = 0;
};

IndexRange rangeOf(std::span<const std::uint32_t> indices);

/// Throws a text with the record entry and position when a coordinate is not finite or the length of a list
/// is not a multiple of 3.
void checkVertices(const Mesh& mesh);

/// The same, and throws when an index is out of range.
IndexRange checkGeometry(const Mesh& mesh);

/// Throws unless `colours` holds one triple for each of `count` elements. The text calls the colours `entry`
/// and the elements `of`.
void checkColourCount(std::span<const float> colours, std::size_t count, const char* entry, const char* of);

/// The same, and throws when a component does not truncate to 0..255.
void checkColours(std::span<const float> colours, std::size_t count, const char* entry, const char* of);

/// Throws unless all points are finite and each has a valid colour.
void checkCloud(const Cloud& cloud);

}  // namespace scansteps::mesh
