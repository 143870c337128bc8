// Layout of several source pictures on square texture pages: triangles are grouped by picture and adjacency,
// with one rectangle per group, packed page by page. Handles neither files nor pixels.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "mesh/mesh.h"

namespace scansteps::mesh {

/// Side length of a texture page in pixels, and scale of the pictures on it.
struct TextureSettings
{
    int width = 2048;
    float scale = 1;
};

/// Width of the border around each group: half of the 4 pixels by which its rectangle is enlarged.
inline constexpr int kTextureBorder = 2;

inline constexpr int kSmallestPage = 16;
inline constexpr int kMaxPages = 1000;

/// Connected triangles of one picture, and their rectangle. The column of source pixel x on the page is
/// left + kTextureBorder + (x - sourceLeft) * scale, its row accordingly; pixel centres have integer
/// positions.
struct TextureGroup
{
    int picture = 0;
    int page = 0;
    int left = 0, top = 0, width = 0, height = 0;  ///< on the page, border included
    int sourceLeft = 0, sourceTop = 0;             ///< of the first pixel inside the border
    float scale = 1;
};

/// A mesh laid out on pages. Texture vertex i < N belongs to mesh vertex i; further ones are duplicates of
/// vertices shared by triangles of several groups.
struct TextureLayout
{
    int pages = 1;
    std::vector<TextureGroup> groups;
    std::vector<std::uint32_t> order;    ///< triangles, page by page, in mesh order on each page
    std::vector<std::uint32_t> pageEnd;  ///< for each page, the end of its part of `order`
    std::vector<std::uint32_t> corners;  ///< texture vertices of the triangles, three for each of the mesh
    std::vector<std::uint32_t> extra;    ///< the mesh vertex of each texture vertex from N on
    std::vector<float> positions;        ///< column, row on the page of every texture vertex
    int shrunk = 0;                      ///< number of groups scaled down to fit a page
};

/// A single texture for the whole mesh: all members except `pages` stay empty, because triangles, texture
/// vertices and positions are those of the mesh. Throws unless "Pixels" has one finite pair per vertex.
TextureLayout singlePage(const Mesh& mesh);

/// Layout of several pictures. The mesh needs "Pixels" inside the pictures (up to one pixel outside is
/// allowed) and "Views" per vertex or, if their number is that of the triangles and not of the vertices, per
/// triangle. Throws a text naming the entry if one is missing or invalid, if a view is not the number of a
/// picture, or if a triangle joins vertices of different pictures. Rectangles are packed tallest first by the
/// bottom-left skyline rule; one that does not fit starts the next page. A group too large for a page is
/// scaled down. Also throws when a page is narrower than kSmallestPage or more than kMaxPages are needed.
/// Uses about 50 bytes per triangle.
TextureLayout layOutPages(const Mesh& mesh, std::span<const PictureView> pictures,
                          const TextureSettings& settings);

}  // namespace scansteps::mesh
