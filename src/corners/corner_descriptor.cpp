// Sampling of the descriptor pattern, and the intensity centroid.
#include "corners/corner_descriptor.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "corners/corner_pattern.h"

namespace scansteps::corners {
namespace {

constexpr int kDisc = 12;

// Half the length of each row of the disc, from its centre outwards.
constexpr std::array<int, kDisc + 1> kDiscRows = [] {
    std::array<int, kDisc + 1> rows{};
    for (int y = 0; y <= kDisc; ++y)
        while ((rows[std::size_t(y)] + 1) * (rows[std::size_t(y)] + 1) + y * y <= kDisc * kDisc + kDisc)
            ++rows[std::size_t(y)];
    return rows;
}();

struct PatternPoints
{
    std::array<float, kPatternPoints> x, y;
};

const PatternPoints& pattern()
{
    static const PatternPoints points = [] {
        PatternPoints p{};
        std::size_t next = 0;
        for (const PatternRing& ring : kPatternRings)
            for (int i = 0; i < ring.count; ++i, ++next) {
                const double angle = (2 * i + ring.turn) * std::numbers::pi / ring.count;
                p.x[next] = float(double(ring.radius) * std::cos(angle));
                p.y[next] = float(double(ring.radius) * std::sin(angle));
            }
        return p;
    }();
    return points;
}

}  // namespace

float orientationOf(grey::GreyView image, int x, int y)
{
    int sumX = 0;
    int sumY = 0;
    for (int dy = -kDisc; dy <= kDisc; ++dy) {
        const std::uint8_t* row = image.row(y + dy) + x;
        const int half = kDiscRows[std::size_t(std::abs(dy))];
        int sum = 0;
        for (int dx = -half; dx <= half; ++dx) {
            sum += row[dx];
            sumX += dx * row[dx];
        }
        sumY += dy * sum;
    }
    return std::atan2(float(sumY), float(sumX));
}

CornerDescriptor describe(grey::GreyView image, float x, float y, float angle, bool fast)
{
    const PatternPoints& points = pattern();
    const float c = std::cos(angle);
    const float s = std::sin(angle);
    std::array<std::uint8_t, kPatternPoints> values{};
    for (std::size_t i = 0; i < kPatternPoints; ++i) {
        const int px = int(x + 0.5F + 1024.0F + c * points.x[i] - s * points.y[i]) - 1024;
        const int py = int(y + 0.5F + 1024.0F + s * points.x[i] + c * points.y[i]) - 1024;
        values[i] = image.row(py)[px];
    }
    CornerDescriptor bits{};
    for (std::size_t word = 0; word < (fast ? 4U : 5U); ++word) {
        std::uint64_t w = 0;
        for (std::size_t i = 0; i < 64; ++i) {
            const PatternPair pair = kPatternPairs[64 * word + i];
            w |= std::uint64_t{values[pair.a] < values[pair.b]} << i;
        }
        bits[word] = w;
    }
    return bits;
}

}  // namespace scansteps::corners
