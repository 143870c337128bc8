// Rasterises lines into 16-bit frames.
#include "grey/draw_line.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace scansteps::grey {

void drawLine(std::span<std::uint16_t> frame, int width, int height, double x1, double y1, double x2,
              double y2, std::uint16_t value)
{
    const double length = std::max(std::abs(x2 - x1), std::abs(y2 - y1));
    if (!(length < 2e6) || !(std::abs(x1) < 1e6) || !(std::abs(y1) < 1e6)) return;
    const int steps = int(std::ceil(length));
    for (int i = 0; i <= steps; ++i) {
        const double t = steps > 0 ? double(i) / steps : 0;
        const auto x = int(std::floor(x1 + t * (x2 - x1) + 0.5));
        const auto y = int(std::floor(y1 + t * (y2 - y1) + 0.5));
        if (x < 0 || y < 0 || x >= width || y >= height) continue;
        frame[std::size_t(y) * std::size_t(width) + std::size_t(x)] = value;
    }
}

}  // namespace scansteps::grey
