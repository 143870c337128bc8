#include "residual_picture.h"

#include <array>
#include <cmath>
#include <numbers>

namespace scansteps::scan {

std::vector<std::uint8_t> residualPicture(const std::vector<PlaneView>& views, const CameraSolution& solution)
{
    const Eigen::Vector2i size = solution.camera.size;
    std::vector<std::uint8_t> rgb(static_cast<std::size_t>(size.x()) * static_cast<std::size_t>(size.y()) * 3,
                                  255);
    const auto dot = [&](const Eigen::Vector2d& at, const std::array<std::uint8_t, 3>& colour) {
        const auto x = std::lround(at.x());
        const auto y = std::lround(at.y());
        if (x < 0 || y < 0 || x >= size.x() || y >= size.y()) return;
        const auto i = 3 * (static_cast<std::size_t>(y) * static_cast<std::size_t>(size.x()) +
                            static_cast<std::size_t>(x));
        for (std::size_t c = 0; c < 3; ++c) rgb[i + c] = colour[c];
    };
    const double scale = size.x() / 16.0;
    for (std::size_t v = 0; v < views.size(); ++v) {
        const double hue = 2 * std::numbers::pi * double(v) / double(views.size());
        std::array<std::uint8_t, 3> colour;
        for (int c = 0; c < 3; ++c)
            colour[static_cast<std::size_t>(c)] =
                static_cast<std::uint8_t>(100 + 90 * std::cos(hue - 2 * std::numbers::pi * c / 3));
        for (std::size_t i = 0; i < views[v].pixels.size(); ++i) {
            const Eigen::Vector2d way = scale * solution.residuals[v][i];
            const int steps = static_cast<int>(std::min(way.norm(), 1e4)) + 1;
            for (int k = 0; k <= steps; ++k) dot(views[v].pixels[i] + way * k / steps, colour);
            for (int dy = -1; dy <= 1; ++dy)
                for (int dx = -1; dx <= 1; ++dx) dot(views[v].pixels[i] + Eigen::Vector2d(dx, dy), colour);
        }
    }
    return rgb;
}

}  // namespace scansteps::scan
