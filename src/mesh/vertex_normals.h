// Normals of vertices from the triangles around them, and the bytes of triangles in a binary STL file, which
// hold the mean of three such normals. The arithmetic of stl_writer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "mesh/mesh.h"

namespace scansteps::mesh {

/// x, y, z and an unused fourth value, so that a normal is one vector register.
struct alignas(16) Normal
{
    float v[4];
};

/// Bytes of a triangle in an STL file: normal, three corners, attribute word, without gaps.
inline constexpr std::size_t kStlEntrySize = 50;

/// The unit normal of every vertex: the sum of the cross products (so weighted by area) of its triangles,
/// multiplied by 1 / its length (in double precision where a float cannot hold its square). Zero where that
/// length is zero or not finite. `normals` has one element for each vertex and is zero before. The mesh must
/// have passed checkVertices; indices are checked here, while they are at hand: where the returned range goes
/// beyond the vertices, normals are not complete.
IndexRange vertexNormals(const Mesh& mesh, std::span<Normal> normals);

/// The entries of `count` triangles from `first` on. The normal is a third of the sum of the corners'
/// normals; the word holds the colours' upper five bits, red highest, below a set bit 15. `out` has
/// kStlEntrySize bytes for each triangle. There must be a colour for each triangle; returns false when a
/// component does not truncate to 0..255.
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
