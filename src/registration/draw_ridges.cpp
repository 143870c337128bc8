// Images of polylines as ridges.
#include "registration/draw_ridges.h"

#include <algorithm>
#include <cmath>

namespace scansteps::registration {
namespace {

// Visits points of a segment at most one pixel apart. Skips segments much longer than the image.
template <class Visit>
void walkSegment(edges::Vertex a, edges::Vertex b, int width, int height, Visit visit)
{
    const float length = std::max(std::abs(b.x - a.x), std::abs(b.y - a.y));
    if (!(length < 4 * float(width + height))) return;
    const int steps = std::max(int(length), 1);
    for (int i = 0; i <= steps; ++i) {
        const float t = float(i) / float(steps);
        visit(a.x + t * (b.x - a.x), a.y + t * (b.y - a.y));
    }
}

template <class Visit>
void forEachSegment(const edges::Polylines& lines, Visit visit)
{
    for (std::size_t k = 0; k < lines.size(); ++k) {
        const auto [items, closed] = lines[k];
        for (std::size_t i = 1; i < items.size(); ++i) visit(items[i - 1], items[i]);
        if (closed && items.size() > 2) visit(items.back(), items.front());
    }
}

}  // namespace

void drawRidges(const edges::Polylines& lines, int width, int height, grey::GreyImage& out, float radius)
{
    out.reshape(std::max(width, 0), std::max(height, 0));
    std::ranges::fill(out.samples, std::uint8_t{0});
    const auto inside = [&](float x, float y) {
        return x > -radius && y > -radius && x < float(width) + radius && y < float(height) + radius;
    };
    forEachSegment(lines, [&](edges::Vertex a, edges::Vertex b) {
        walkSegment(a, b, width, height, [&](float x, float y) {
            if (!inside(x, y)) return;
            const int left = std::max(int(std::ceil(x - radius)), 0);
            const int right = std::min(int(std::floor(x + radius)), width - 1);
            const int bottom = std::min(int(std::floor(y + radius)), height - 1);
            for (int v = std::max(int(std::ceil(y - radius)), 0); v <= bottom; ++v)
                for (int u = left; u <= right; ++u) {
                    const float d = edges::distanceToSegment({float(u), float(v)}, a, b);
                    const auto value = std::uint8_t(std::max(255 * (1 - d / radius), 0.0F));
                    std::uint8_t& sample = out.row(v)[u];
                    sample = std::max(sample, value);
                }
        });
    });
}

}  // namespace scansteps::registration
