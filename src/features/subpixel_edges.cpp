#include "features/subpixel_edges.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <utility>

#include "features/gradient_length.h"
#include "features/mcanny.h"
#include "scansteps/error.h"

namespace scansteps {
namespace {

float at(const FloatPlane& lengths, std::ptrdiff_t x, std::ptrdiff_t y)
{
    if (x < 0 || y < 0 || x >= std::ptrdiff_t(lengths.width()) || y >= std::ptrdiff_t(lengths.height()))
        return 0;
    return lengths.row(std::size_t(y))[x];
}

// Length one step along the gradient, between the two neighbours it passes.
float lengthAlong(const FloatPlane& lengths, std::ptrdiff_t x, std::ptrdiff_t y, float ux, float uy)
{
    const std::ptrdiff_t sx = ux < 0 ? -1 : 1;
    const std::ptrdiff_t sy = uy < 0 ? -1 : 1;
    const bool steep = std::abs(uy) > std::abs(ux);
    const float t = steep ? std::abs(ux / uy) : std::abs(uy / ux);
    const float straight = steep ? at(lengths, x, y + sy) : at(lengths, x + sx, y);
    return (1 - t) * straight + t * at(lengths, x + sx, y + sy);
}

}  // namespace

void subpixelEdges(const FloatPlane& image, double low, double high, int aperture,
                   std::vector<std::uint8_t>& map, std::vector<Vertex>& positions)
{
    if (aperture != 3 && aperture != 5 && aperture != 7) fail("aperture_size wrong");
    if (low > high) std::swap(low, high);
    FloatPlane dx, dy;
    Sobel(image, dx, 1, 0, aperture);
    Sobel(image, dy, 0, 1, aperture);
    FloatPlane lengths(image.width(), image.height());
    for (std::size_t y = 0; y < image.height(); ++y)
        gradientLengths(dx.samples(y), dy.samples(y), 1, std::numeric_limits<float>::infinity(),
                        lengths.samples(y));
    const auto width = std::ptrdiff_t(image.width());
    const auto height = std::ptrdiff_t(image.height());
    map.assign(std::size_t(width) * std::size_t(height), 0);
    positions.resize(map.size());
    std::vector<std::ptrdiff_t> todo;
    for (std::ptrdiff_t y = 0; y < height; ++y)
        for (std::ptrdiff_t x = 0; x < width; ++x) {
            const auto place = y * width + x;
            positions[std::size_t(place)] = {float(x), float(y)};
            const float gx = dx.row(std::size_t(y))[x];
            const float gy = dy.row(std::size_t(y))[x];
            const double sum = double{std::abs(gx)} + double{std::abs(gy)};
            if (!(sum > low) || !(sum > 0) || !std::isfinite(sum)) continue;
            const float here = at(lengths, x, y);
            const float ahead = lengthAlong(lengths, x, y, gx, gy);
            const float behind = lengthAlong(lengths, x, y, -gx, -gy);
            if (!(here > behind) || !(here >= ahead)) continue;
            // a step along the gradient reaches the neighbouring row or column
            const float reach = 1 / std::max(std::abs(gx), std::abs(gy));
            const float t = (ahead - behind) / (2 * (2 * here - ahead - behind));
            positions[std::size_t(place)] = {float(x) + t * gx * reach, float(y) + t * gy * reach};
            map[std::size_t(place)] = 1;
            if (sum > high) todo.push_back(place);
        }
    while (!todo.empty()) {
        const std::ptrdiff_t place = todo.back();
        todo.pop_back();
        map[std::size_t(place)] = 255;
        const std::ptrdiff_t x = place % width;
        const std::ptrdiff_t y = place / width;
        for (std::ptrdiff_t v = std::max<std::ptrdiff_t>(y - 1, 0); v <= std::min(y + 1, height - 1); ++v)
            for (std::ptrdiff_t u = std::max<std::ptrdiff_t>(x - 1, 0); u <= std::min(x + 1, width - 1); ++u)
                if (std::uint8_t& cell = map[std::size_t(v * width + u)]; cell == 1) {
                    cell = 255;
                    todo.push_back(v * width + u);
                }
    }
    for (std::size_t i = 0; i < map.size(); ++i) {
        if (map[i] != 1) continue;
        map[i] = 0;
        positions[i] = {float(std::ptrdiff_t(i) % width), float(std::ptrdiff_t(i) / width)};
    }
}

}  // namespace scansteps
