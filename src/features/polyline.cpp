#include "features/polyline.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>

#include "scansteps/error.h"

namespace scansteps {
namespace {

// The map with a frame of one pixel around it, so that no neighbour needs a check.
class Tracer
{
  public:
    Tracer(std::span<const std::uint8_t> map, int width, int height)
        : width_(std::uint32_t(width)), stride_(std::uint32_t(width) + 2)
    {
        cells_.resize(std::size_t{stride_} * (std::size_t(height) + 2));
        for (std::uint32_t y = 0; y < std::uint32_t(height); ++y)
            for (std::uint32_t x = 0; x < width_; ++x)
                cells_[(y + 1) * stride_ + x + 1] = map[std::size_t{y} * width_ + x] != 0 ? kEdge : 0;
    }

    std::vector<PixelChain> run()
    {
        for (std::uint32_t p = stride_; p + stride_ < cells_.size(); ++p)
            if (cells_[p] != 0 && !isLink(p)) startAt(p);
        for (std::uint32_t p = stride_; p + stride_ < cells_.size(); ++p)
            if (cells_[p] == kEdge && isLink(p)) loopAt(p);
        return std::move(chains_);
    }

  private:
    static constexpr std::uint8_t kEdge = 1, kDone = 2;

    struct Neighbours
    {
        std::array<std::uint32_t, 8> at{};
        std::size_t count = 0;
        void add(std::uint32_t p) { at[count++] = p; }
    };

    Neighbours around(std::uint32_t p) const
    {
        const auto edge = [this](std::uint32_t q) { return cells_[q] != 0; };
        const bool n = edge(p - stride_), s = edge(p + stride_), w = edge(p - 1), e = edge(p + 1);
        Neighbours found;
        if (!n && !w && edge(p - stride_ - 1)) found.add(p - stride_ - 1);
        if (n) found.add(p - stride_);
        if (!n && !e && edge(p - stride_ + 1)) found.add(p - stride_ + 1);
        if (w) found.add(p - 1);
        if (e) found.add(p + 1);
        if (!s && !w && edge(p + stride_ - 1)) found.add(p + stride_ - 1);
        if (s) found.add(p + stride_);
        if (!s && !e && edge(p + stride_ + 1)) found.add(p + stride_ + 1);
        return found;
    }
    bool isLink(std::uint32_t p) const { return around(p).count == 2; }
    std::uint32_t placeOf(std::uint32_t p) const { return (p / stride_ - 1) * width_ + p % stride_ - 1; }

    // Follows the links from `from` through `to` up to an end, a junction or `from` itself.
    PixelChain follow(std::uint32_t from, std::uint32_t to)
    {
        const std::uint32_t start = from;
        PixelChain chain{{placeOf(from)}, false};
        for (;;) {
            if (to == start) {
                chain.closed = true;
                return chain;
            }
            chain.places.push_back(placeOf(to));
            const Neighbours next = around(to);
            if (next.count != 2) return chain;
            cells_[to] = kDone;
            const std::uint32_t other = next.at[0] == from ? next.at[1] : next.at[0];
            from = to;
            to = other;
        }
    }

    void startAt(std::uint32_t p)
    {
        const Neighbours next = around(p);
        for (std::size_t i = 0; i < next.count; ++i) {
            const std::uint32_t q = next.at[i];
            if (isLink(q) ? cells_[q] == kEdge : p < q) chains_.push_back(follow(p, q));
        }
    }

    void loopAt(std::uint32_t p)
    {
        cells_[p] = kDone;
        chains_.push_back(follow(p, around(p).at[0]));
    }

    std::uint32_t width_, stride_;
    std::vector<std::uint8_t> cells_;
    std::vector<PixelChain> chains_;
};

}  // namespace

float distanceToSegment(Vertex p, Vertex a, Vertex b)
{
    const float dx = b.x - a.x;
    const float dy = b.y - a.y;
    const float square = dx * dx + dy * dy;
    const float t =
        square > 0 ? std::clamp(((p.x - a.x) * dx + (p.y - a.y) * dy) / square, 0.0F, 1.0F) : 0.0F;
    return std::hypot(p.x - a.x - t * dx, p.y - a.y - t * dy);
}

std::vector<PixelChain> traceChains(std::span<const std::uint8_t> map, int width, int height)
{
    if (width <= 0 || height <= 0) return {};
    const std::uint64_t framed = (std::uint64_t(width) + 2) * (std::uint64_t(height) + 2);
    if (framed > std::numeric_limits<std::int32_t>::max()) fail("edge map too large");
    if (map.size() < std::size_t(width) * std::size_t(height)) fail("edge map smaller than its size says");
    return Tracer(map, width, height).run();
}

Polyline simplify(const Polyline& line, float tolerance)
{
    std::vector<Vertex> points = line.verts;
    if (line.closed && !points.empty()) points.push_back(points.front());
    if (points.size() < 3) return line;
    std::vector<bool> keep(points.size());
    keep.front() = keep.back() = true;
    std::vector<std::pair<std::size_t, std::size_t>> todo{{0, points.size() - 1}};
    bool split = line.closed;  // the first part of a closed line has no length to measure from: always cut
    while (!todo.empty()) {
        const auto [first, last] = todo.back();
        todo.pop_back();
        float farthest = -1;
        std::size_t at = first;
        for (std::size_t i = first + 1; i < last; ++i) {
            const float d = distanceToSegment(points[i], points[first], points[last]);
            if (d > farthest) farthest = d, at = i;
        }
        if (at == first || (farthest <= tolerance && !split)) continue;
        split = false;
        keep[at] = true;
        todo.emplace_back(first, at);
        todo.emplace_back(at, last);
    }
    Polyline result{{}, line.closed};
    for (std::size_t i = 0; i + (line.closed ? 1 : 0) < points.size(); ++i)
        if (keep[i]) result.verts.push_back(points[i]);
    return result;
}

std::vector<Polyline> tracePolylines(std::span<const std::uint8_t> map, int width, int height,
                                     float tolerance, std::span<const Vertex> positions)
{
    std::vector<Polyline> lines;
    for (const PixelChain& chain : traceChains(map, width, height)) {
        Polyline line{{}, chain.closed};
        for (const std::uint32_t place : chain.places)
            line.verts.push_back(positions.empty() ? Vertex{float(place % std::uint32_t(width)),
                                                            float(place / std::uint32_t(width))}
                                                   : positions[place]);
        lines.push_back(simplify(line, tolerance));
    }
    return lines;
}

}  // namespace scansteps
