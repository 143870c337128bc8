// The kernels of stl_writer: vertex normals computed from the adjacent triangles, and the entries of
// triangles in a binary STL file, which contain the mean of three such normals.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "mesh/mesh.h"

namespace scansteps::mesh {

/// x, y, z and an unused fourth value, so that a normal fills a vector register.
struct alignas(16) Normal
{
    float v[4];
};

/// Size of a triangle in an STL file: normal, three corners, attribute word, without padding.
inline constexpr std::size_t kStlEntrySize = 50;

/// The unit normal of every vertex: the sum of the cross products of its triangles (weighted by area
/// therefore), multiplied by 1 / its length (in double precision if the square of the length is outside the
/// range of float). Zero if that length is zero or not finite. `normals` has one element per vertex,
/// initially zero. The mesh must have passed checkVertices. Indices are checked here, while they are in
/// cache: if the returned range exceeds the vertices, the normals are incomplete.
IndexRange vertexNormals(const Mesh& mesh, std::span<Normal> normals);

/// Writes the entries of `count` triangles from `first` on. The normal is a third of the sum of the corners'
/// normals; the attribute word holds the upper five bits of each component, red highest, below a set bit 15.
/// `out` has kStlEntrySize bytes per triangle. Each triangle must have a colour; returns false if a component
/// does not truncate to 0..255.
bool stlEntries(const Mesh& mesh, std::span<const Normal> normals, std::size_t first, std::size_t count,
                char* out);

namespace scalar {
Normal unitNormal(float x, float y, float z);
IndexRange join(IndexRange a, IndexRange b);
IndexRange vertexNormals(const Mesh& mesh, std::span<Normal> normals);
bool stlEntries(const Mesh& mesh, std::span<const Normal> normals, std::size_t first, std::size_t count,
                char* out);
}  // namespace scalar

}  // namespace scansteps::mesh
