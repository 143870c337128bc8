// The pixels of texture pages: parts of source pictures copied to where the layout put them.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "mesh/mesh.h"
#include "mesh/texture_layout.h"

namespace scansteps::mesh {

/// A square page of 8-bit red, green, blue triples, rows top to bottom.
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

/// The picture at the upper left, not scaled. Returns false when it is larger than the page, and was clipped.
bool copyPicture(const PictureView& picture, TexturePage& page);

/// The groups that lie on page `number`, borders included. Pixels outside a picture repeat its edge; at a
/// scale other than 1 pixels are interpolated from the four nearest. No pixel outside the groups' rectangles
/// is touched, and none inside is taken from anywhere but the group's picture.
void copyGroups(const TextureLayout& layout, int number, std::span<const PictureView> pictures,
                TexturePage& page);

}  // namespace scansteps::mesh
