// Scalar conversion of YUYV16 frames, which the vectorised one of the steps is compared with.
#include "scansteps/yuyv.h"

#include <algorithm>

#include "scansteps/error.h"

namespace scansteps {
namespace {

std::uint8_t toByte(double value)
{
    return static_cast<std::uint8_t>(std::max(std::min(static_cast<float>(value), 255.0F), 0.0F));
}

void pixelToRgb(int y, int u, int v, std::uint8_t* rgb)
{
    const double luma = 1.164 * (y - 16);
    rgb[0] = toByte(luma + 1.596 * (v - 128));
    rgb[1] = toByte(luma + 0.391 * (128 - u) + 0.813 * (128 - v));
    rgb[2] = toByte(luma + 2.018 * (u - 128));
}

}  // namespace

void yuyv16RowToRgb(std::span<const std::uint16_t> src, std::span<std::uint8_t> dst, std::size_t row,
                    std::size_t first, std::size_t width, std::size_t frame)
{
    for (std::size_t k = row + first; k < row + width; ++k) {
        const std::size_t pair = row + ((k - row) & ~std::size_t{1});
        const int v = pair + 1 < frame ? src[pair + 1] >> 8 : 128;
        pixelToRgb(src[k] & 0xFF, src[pair] >> 8, v, &dst[3 * k]);
    }
}

void yuyv16ToRgb(std::span<const std::uint16_t> src, std::span<std::uint8_t> dst, std::size_t width,
                 std::size_t height)
{
    if (width != 0 && height > src.size() / width) fail("YUYV16 buffer smaller than width x height");
    if (dst.size() / 3 < width * height) fail("RGB buffer smaller than width x height");
    for (std::size_t y = 0; y < height; ++y) yuyv16RowToRgb(src, dst, y * width, 0, width, width * height);
}

}  // namespace scansteps
