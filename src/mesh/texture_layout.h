// Where the parts of several source pictures go on square texture pages: triangles grouped by picture and
// adjacency, one rectangle a group, packed page after page. Knows no files and touches no pixels.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "mesh/mesh.h"

namespace scansteps::mesh {

/// Side of a texture page in pixels, and how large a picture's pixel becomes on it.
struct TextureSettings
{
    int width = 2048;
    float scale = 1;
};

/// Pixels around each group that no triangle of it reaches: half of the 4 by which its rectangle is enlarged.
inline constexpr int kTextureBorder = 2;

inline constexpr int kSmallestPage = 16;
inline constexpr int kMaxPages = 1000;

/// Triangles of one picture that hang together, and their rectangle. Source pixel (x, y) lies on the page
/// at (left + kTextureBorder + (x - sourceLeft) * scale, and so on), pixel centres being whole numbers.
struct TextureGroup
{
    int picture = 0;
    int page = 0;
    int left = 0, top = 0, width = 0, height = 0;  ///< on the page, border included
    int sourceLeft = 0, sourceTop = 0;             ///< of the first pixel inside the border
    float scale = 1;
};

/// A mesh laid out on pages. Texture vertex i < N belongs to mesh vertex i; further ones repeat vertices that
/// triangles of several groups share.
struct TextureLayout
{
    int pages = 1;
    std::vector<TextureGroup> groups;
    std::vector<std::uint32_t> order;    ///< triangles, page by page, in their own order on each page
    std::vector<std::uint32_t> pageEnd;  ///< for each page, the end of its part of `order`
    std::vector<std::uint32_t> corners;  ///< texture vertices of the triangles, three for each of the mesh
    std::vector<std::uint32_t> extra;    ///< the mesh vertex behind each texture vertex from N on
    std::vector<float> positions;        ///< column, row on the page of every texture vertex
    int shrunk = 0;                      ///< groups too large for a page, which got a smaller scale
};

/// One texture for the whole mesh: everything but `pages` stays empty, since triangles, texture vertices and
/// positions are those of the mesh. Throws when "Pixels" has not one pair for each vertex or is not finite.
TextureLayout singlePage(const Mesh& mesh);

/// Several pictures. The mesh needs "Pixels" inside the pictures (up to one pixel outside is allowed) and
/// "Views" for each vertex or, when there are as many as triangles and not as vertices, for each triangle;
/// throws a text naming the entry where it has not, where a view is no picture's number, and where a
/// triangle joins vertices of different pictures. Rectangles are packed highest first by the bottom-left
/// skyline rule; one that no longer fits closes the page. A group too large for a page is shrunk. Throws too
/// when a page is narrower than kSmallestPage or there are more than kMaxPages. Takes about 50 bytes a
/// triangle.
TextureLayout layOutPages(const Mesh& mesh, std::span<const PictureView> pictures,
                          const TextureSettings& settings);

}  // namespace scansteps::mesh
