// The pixels of texture pages: copies parts of source pictures to their place in the layout.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "mesh/mesh.h"
#include "mesh/texture_layout.h"

namespace scansteps::mesh {

/// A square page of 8-bit red, green, blue triples, rows from top to bottom.
struct TexturePage
{
    explicit TexturePage(int side, std::uint8_t fill = 0)
        : width(side),
          rgb(std::size_t{3} * static_cast<std::size_t>(side) * static_cast<std::size_t>(side), fill)
    {
    }

    int width;
    std::vector<std::uint8_t> rgb;
};

/// Copies the picture to the upper left corner, unscaled. Returns false if it was clipped at the page.
bool copyPicture(const PictureView& picture, TexturePage& page);

/// Copies the groups of page `number`, including borders. Pixels outside a picture repeat its edge; at scales
/// other than 1 pixels are interpolated from the four nearest. Pixels outside the groups' rectangles are not
/// modified.
void copyGroups(const TextureLayout& layout, int number, std::span<const PictureView> pictures,
                TexturePage& page);

}  // namespace scansteps::mesh
