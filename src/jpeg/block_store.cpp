// Clipping and averaging of blocks on their way into a plane.
#include "jpeg/block_store.h"

#include <algorithm>

namespace scansteps::jpeg {

namespace {

/// Averages two rows of `inside` samples; if their number is odd, the last sample is repeated.
void averageRow(const std::uint8_t* upper, const std::uint8_t* lower, int inside, int step, std::uint8_t* dst)
{
    if (step == 1) {
        for (int i = 0; i < inside; ++i) dst[i] = std::uint8_t((upper[i] + lower[i] + 1) / 2);
        return;
    }
    for (int i = 0; i < inside / 2; ++i)
        dst[i] = std::uint8_t((upper[2 * i] + upper[2 * i + 1] + lower[2 * i] + lower[2 * i + 1] + 2) / 4);
    if (inside % 2 != 0) dst[inside / 2] = std::uint8_t((upper[inside - 1] + lower[inside - 1] + 1) / 2);
}

}  // namespace

void storeJpegSamples(const JpegScanComponent& component, const std::uint8_t* samples, int columns, int x,
                      int y)
{
    const int insideX = std::min(columns, component.width - x);
    const int insideY = std::min(8, component.height - y);
    if (insideX <= 0) return;
    const auto stride = std::size_t(component.planeWidth);
    std::uint8_t* dst =
        component.plane + std::size_t(y / component.averageY) * stride + std::size_t(x / component.averageX);
    for (int row = 0; row < insideY; row += component.averageY, dst += stride) {
        const std::uint8_t* upper = samples + std::ptrdiff_t(row) * columns;
        if (component.averageX == 1 && component.averageY == 1)
            std::copy_n(upper, insideX, dst);
        else
            averageRow(
                upper,
                row + component.averageY - 1 < insideY ? upper + (component.averageY - 1) * columns : upper,
                insideX, component.averageX, dst);
    }
}

}  // namespace scansteps::jpeg
