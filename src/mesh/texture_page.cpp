// Copying and interpolation of picture parts.
#include "mesh/texture_page.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace scansteps::mesh {

namespace {

const std::uint8_t* pixelAt(const PictureView& picture, int x, int y)
{
    const auto column = static_cast<std::size_t>(std::clamp(x, 0, picture.width - 1));
    const auto row = static_cast<std::size_t>(std::clamp(y, 0, picture.height - 1));
    return &picture.rgb[3 * (row * static_cast<std::size_t>(picture.width) + column)];
}

std::uint8_t* pixelAt(TexturePage& page, int x, int y)
{
    return &page.rgb[3 * (static_cast<std::size_t>(y) * static_cast<std::size_t>(page.width) +
                          static_cast<std::size_t>(x))];
}

void interpolate(const PictureView& picture, float x, float y, std::uint8_t* out)
{
    const float left = std::floor(x), top = std::floor(y);
    const float fx = x - left, fy = y - top;
    const int column = static_cast<int>(left), row = static_cast<int>(top);
    const std::uint8_t* a = pixelAt(picture, column, row);
    const std::uint8_t* b = pixelAt(picture, column + 1, row);
    const std::uint8_t* c = pixelAt(picture, column, row + 1);
    const std::uint8_t* d = pixelAt(picture, column + 1, row + 1);
    for (int i = 0; i < 3; ++i) {
        const float upper = static_cast<float>(a[i]) * (1 - fx) + static_cast<float>(b[i]) * fx;
        const float lower = static_cast<float>(c[i]) * (1 - fx) + static_cast<float>(d[i]) * fx;
        out[i] = static_cast<std::uint8_t>(upper * (1 - fy) + lower * fy + 0.5F);
    }
}

void copyGroup(const TextureGroup& group, const PictureView& picture, TexturePage& page)
{
    for (int y = 0; y < group.height; ++y) {
        std::uint8_t* out = pixelAt(page, group.left, group.top + y);
        for (int x = 0; x < group.width; ++x, out += 3) {
            const int dx = x - kTextureBorder, dy = y - kTextureBorder;
            if (group.scale == 1)
                std::memcpy(out, pixelAt(picture, group.sourceLeft + dx, group.sourceTop + dy), 3);
            else
                interpolate(picture,
                            static_cast<float>(group.sourceLeft) + static_cast<float>(dx) / group.scale,
                            static_cast<float>(group.sourceTop) + static_cast<float>(dy) / group.scale, out);
        }
    }
}

}  // namespace

bool copyPicture(const PictureView& picture, TexturePage& page)
{
    const int width = std::min(picture.width, page.width);
    for (int y = 0; y < std::min(picture.height, page.width); ++y)
        if (width > 0)
            std::memcpy(pixelAt(page, 0, y), pixelAt(picture, 0, y),
                        std::size_t{3} * static_cast<std::size_t>(width));
    return picture.width <= page.width && picture.height <= page.width;
}

void copyGroups(const TextureLayout& layout, int number, std::span<const PictureView> pictures,
                TexturePage& page)
{
    for (const TextureGroup& group : layout.groups)
        if (group.page == number) copyGroup(group, pictures[static_cast<std::size_t>(group.picture)], page);
}

}  // namespace scansteps::mesh
