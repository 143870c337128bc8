// Tracing of edge pixels into paths, and simplification of paths to polylines.
#include "edges/polyline.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <utility>

#include "scansteps/error.h"

namespace scansteps::edges {
namespace {

constexpr std::uint8_t kEdge = 1, kDone = 2;

float squareToSegment(Vertex p, Vertex a, Vertex b)
{
    const float dx = b.x - a.x;
    const float dy = b.y - a.y;
    const float square = dx * dx + dy * dy;
    const float t =
        square > 0 ? std::clamp(((p.x - a.x) * dx + (p.y - a.y) * dy) / square, 0.0F, 1.0F) : 0.0F;
    const float x = p.x - a.x - t * dx;
    const float y = p.y - a.y - t * dy;
    return x * x + y * y;
}

}  // namespace

struct PathTracer::Neighbours
{
    std::array<std::uint32_t, 8> at{};
    std::size_t count = 0;
    void add(std::uint32_t cell) { at[count++] = cell; }
};

const PixelPaths& PathTracer::trace(const EdgeBits& edges)
{
    loadEdges(edges);
    paths_.clear();
    for (const std::uint32_t cell : edges_) {
        const Neighbours next = around(cell);
        if (next.count == 2) continue;
        for (std::size_t i = 0; i < next.count; ++i) {
            const std::uint32_t to = next.at[i];
            if (isLink(to) ? cells_[to] == kEdge : cell < to) follow(cell, to);
        }
    }
    for (const std::uint32_t cell : edges_) {
        if (cells_[cell] != kEdge) continue;
        const Neighbours next = around(cell);
        if (next.count != 2) continue;
        cells_[cell] = kDone;
        follow(cell, next.at[0]);
    }
    return paths_;
}

void PathTracer::loadEdges(const EdgeBits& edges)
{
    const std::size_t stride = edges.width() + 2, total = stride * (edges.height() + 2);
    if (total > std::size_t(std::numeric_limits<std::int32_t>::max())) fail("edge map too large");
    if (total == cells_.size() && stride == stride_)
        for (const std::uint32_t cell : edges_) cells_[cell] = 0;
    else
        cells_.assign(total, 0);
    edges_.clear();
    width_ = std::uint32_t(edges.width());
    stride_ = std::uint32_t(stride);
    for (std::size_t y = 0; y < edges.height(); ++y) {
        const std::uint64_t* row = edges.edges(y);
        const std::size_t first = (y + 1) * stride + 1;
        for (std::size_t w = 0; w < edges.wordsPerRow(); ++w)
            for (std::uint64_t bits = row[w]; bits != 0; bits &= bits - 1)
                edges_.push_back(std::uint32_t(first + 64 * w + std::size_t(std::countr_zero(bits))));
    }
    for (const std::uint32_t cell : edges_) cells_[cell] = kEdge;
}

PathTracer::Neighbours PathTracer::around(std::uint32_t p) const
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

bool PathTracer::isLink(std::uint32_t cell) const
{
    return around(cell).count == 2;
}

// Follows the path from `from` through `to` to an end, a junction or `from` itself.
void PathTracer::follow(std::uint32_t from, std::uint32_t to)
{
    const std::uint32_t start = from;
    paths_.add(pixelOf(from));
    while (to != start) {
        paths_.add(pixelOf(to));
        const Neighbours next = around(to);
        if (next.count != 2) return paths_.finish(false);
        cells_[to] = kDone;
        const std::uint32_t other = next.at[0] == from ? next.at[1] : next.at[0];
        from = to;
        to = other;
    }
    paths_.finish(true);
}

float distanceToSegment(Vertex p, Vertex a, Vertex b)
{
    return std::sqrt(squareToSegment(p, a, b));
}

void simplify(Polylines::Path line, float tolerance, Polylines& out, Scratch scratch)
{
    const std::size_t size = line.items.size();
    const std::size_t count = size + (line.closed && size > 0 ? 1 : 0);  // the first again at the end
    if (count < 3) {
        for (const Vertex& v : line.items) out.add(v);
        return out.finish(line.closed);
    }
    const auto point = [&](std::size_t i) { return line.items[i < size ? i : 0]; };
    std::pmr::vector<std::uint8_t> keep(count, 0, scratch);
    keep.front() = keep.back() = 1;
    std::pmr::vector<std::pair<std::size_t, std::size_t>> todo(scratch);
    todo.reserve(count);
    todo.emplace_back(0, count - 1);
    bool split = line.closed;  // a closed line starts and ends at one vertex, so it is always split once
    while (!todo.empty()) {
        const auto [first, last] = todo.back();
        todo.pop_back();
        float farthest = -1;
        std::size_t at = first;
        for (std::size_t i = first + 1; i < last; ++i) {
            const float square = squareToSegment(line.items[i], point(first), point(last));
            if (square > farthest) farthest = square, at = i;
        }
        if (at == first || (farthest <= tolerance * tolerance && !split)) continue;
        split = false;
        keep[at] = 1;
        todo.emplace_back(first, at);
        todo.emplace_back(at, last);
    }
    for (std::size_t i = 0; i < size; ++i)
        if (keep[i] != 0) out.add(line.items[i]);
    out.finish(line.closed);
}

void tracePolylines(const EdgeBits& edges, PathTracer& tracer, Polylines& lines,
                    std::span<const Vertex> positions, float tolerance, Scratch scratch)
{
    const PixelPaths& paths = tracer.trace(edges);
    const auto width = std::uint32_t(edges.width());
    lines.clear();
    std::pmr::vector<Vertex> line(scratch);
    for (std::size_t i = 0; i < paths.size(); ++i) {
        line.clear();
        for (const std::uint32_t pixel : paths[i].items)
            line.push_back(positions.empty() ? Vertex{float(pixel % width), float(pixel / width)}
                                             : positions[pixel]);
        simplify({line, paths[i].closed}, tolerance, lines, scratch);
    }
}

}  // namespace scansteps::edges
