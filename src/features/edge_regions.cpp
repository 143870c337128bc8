#include "features/edge_regions.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace scansteps {
namespace {

struct End
{
    int x, y;
    float dx, dy;                    // direction in which the line would go on, unit length
    std::vector<std::uint32_t> own;  // the last places of the line, which are no goal
};

constexpr std::size_t kTail = 8;

std::vector<End> endsOf(std::span<const std::uint8_t> map, int width, int height)
{
    std::vector<End> ends;
    const auto count = [&](int x, int y) {
        int n = 0;
        for (int v = std::max(y - 1, 0); v <= std::min(y + 1, height - 1); ++v)
            for (int u = std::max(x - 1, 0); u <= std::min(x + 1, width - 1); ++u)
                n += map[std::size_t(v) * std::size_t(width) + std::size_t(u)] != 0;
        return n - 1;
    };
    const auto add = [&](std::vector<std::uint32_t> tail) {  // the end first
        const int x = int(tail[0] % std::uint32_t(width));
        const int y = int(tail[0] / std::uint32_t(width));
        if (count(x, y) != 1) return;  // a junction
        const float dx = float(x - int(tail.back() % std::uint32_t(width)));
        const float dy = float(y - int(tail.back() / std::uint32_t(width)));
        const float length = std::hypot(dx, dy);
        if (length > 0) ends.push_back({x, y, dx / length, dy / length, std::move(tail)});
    };
    for (const PixelChain& chain : traceChains(map, width, height)) {
        if (chain.closed || chain.places.size() < 3) continue;
        const std::size_t tail = std::min(kTail, chain.places.size());
        add({chain.places.begin(), chain.places.begin() + std::ptrdiff_t(tail)});
        add({chain.places.rbegin(), chain.places.rbegin() + std::ptrdiff_t(tail)});
    }
    std::ranges::stable_sort(ends, {}, [&](const End& e) { return e.own[0]; });
    return ends;
}

}  // namespace

int fillGaps(std::span<std::uint8_t> map, int width, int height, int reach)
{
    int filled = 0;
    for (const End& end : endsOf(map, width, height)) {
        int bestSquare = reach * reach + 1;
        int goalX = 0;
        int goalY = 0;
        for (int y = std::max(end.y - reach, 0); y <= std::min(end.y + reach, height - 1); ++y)
            for (int x = std::max(end.x - reach, 0); x <= std::min(end.x + reach, width - 1); ++x) {
                const std::size_t place = std::size_t(y) * std::size_t(width) + std::size_t(x);
                const int dx = x - end.x;
                const int dy = y - end.y;
                const int square = dx * dx + dy * dy;
                if (map[place] == 0 || square >= bestSquare) continue;
                if (2 * (float(dx) * end.dx + float(dy) * end.dy) < std::sqrt(float(square))) continue;
                if (std::ranges::find(end.own, std::uint32_t(place)) != end.own.end()) continue;
                bestSquare = square;
                goalX = x;
                goalY = y;
            }
        if (bestSquare > reach * reach) continue;
        const int steps = std::max(std::abs(goalX - end.x), std::abs(goalY - end.y));
        for (int i = 1; i < steps; ++i) {
            const int x = end.x + int(std::lround(double(i) * (goalX - end.x) / steps));
            const int y = end.y + int(std::lround(double(i) * (goalY - end.y) / steps));
            map[std::size_t(y) * std::size_t(width) + std::size_t(x)] = 255;
        }
        ++filled;
    }
    return filled;
}

std::vector<EnclosedRegion> labelRegions(std::span<const std::uint8_t> map, int width, int height,
                                         std::vector<std::int32_t>& labels)
{
    std::vector<EnclosedRegion> regions;
    labels.assign(std::size_t(width) * std::size_t(height), 0);
    std::vector<std::uint32_t> todo;
    const auto visit = [&](std::size_t place) {
        if (map[place] != 0 || labels[place] != 0) return;
        labels[place] = std::int32_t(regions.size());
        todo.push_back(std::uint32_t(place));
    };
    for (std::size_t start = 0; start < labels.size(); ++start) {
        if (map[start] != 0 || labels[start] != 0) continue;
        const int firstX = int(start % std::size_t(width));
        const int firstY = int(start / std::size_t(width));
        regions.push_back({.left = firstX, .top = firstY, .right = firstX, .bottom = firstY});
        EnclosedRegion& r = regions.back();
        visit(start);
        while (!todo.empty()) {
            const std::size_t place = todo.back();
            todo.pop_back();
            const int x = int(place % std::size_t(width));
            const int y = int(place / std::size_t(width));
            ++r.area;
            r.x += x;
            r.y += y;
            r.left = std::min(r.left, x);
            r.right = std::max(r.right, x);
            r.bottom = std::max(r.bottom, y);
            r.open = r.open || x == 0 || y == 0 || x == width - 1 || y == height - 1;
            if (x > 0) visit(place - 1);
            if (x + 1 < width) visit(place + 1);
            if (y > 0) visit(place - std::size_t(width));
            if (y + 1 < height) visit(place + std::size_t(width));
        }
        r.x /= double(r.area);
        r.y /= double(r.area);
    }
    return regions;
}

}  // namespace scansteps
