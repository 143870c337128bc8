// Gap filling between line ends, and connected components of the pixels between edges.
#include "edges/edge_regions.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <utility>

namespace scansteps::edges {
namespace {

constexpr std::size_t kTail = 8;

struct End
{
    int x, y;
    float dx, dy;                          // unit vector in which the line would continue
    std::array<std::uint32_t, kTail> own;  // the line's last pixels, never a target; the end first
    std::size_t ownCount;
};

int neighboursOf(const EdgeBits& edges, int x, int y)
{
    int n = 0;
    for (int v = std::max(y - 1, 0); v <= std::min(y + 1, int(edges.height()) - 1); ++v)
        for (int u = std::max(x - 1, 0); u <= std::min(x + 1, int(edges.width()) - 1); ++u)
            n += edges.isEdge(std::size_t(u), std::size_t(v));
    return n - 1;
}

// The ends of lines of three pixels or more, in row order.
std::pmr::vector<End> endsOf(const EdgeBits& edges, const PixelPaths& paths, Scratch scratch)
{
    const auto width = std::uint32_t(edges.width());
    std::pmr::vector<End> ends(scratch);
    const auto add = [&](const auto& tail) {
        End end{int(tail[0] % width), int(tail[0] / width), 0, 0, {}, std::min(kTail, tail.size())};
        if (neighboursOf(edges, end.x, end.y) != 1) return;  // a junction
        for (std::size_t i = 0; i < end.ownCount; ++i) end.own[i] = tail[i];
        const std::uint32_t last = end.own[end.ownCount - 1];
        const float dx = float(end.x - int(last % width));
        const float dy = float(end.y - int(last / width));
        const float length = std::hypot(dx, dy);
        if (!(length > 0)) return;
        end.dx = dx / length;
        end.dy = dy / length;
        ends.push_back(end);
    };
    struct Backwards
    {
        std::span<const std::uint32_t> items;
        std::size_t size() const { return items.size(); }
        std::uint32_t operator[](std::size_t i) const { return items[items.size() - 1 - i]; }
    };
    for (std::size_t i = 0; i < paths.size(); ++i) {
        const auto [items, closed] = paths[i];
        if (closed || items.size() < 3) continue;
        add(items);
        add(Backwards{items});
    }
    std::ranges::sort(ends, {}, [](const End& e) { return e.own[0]; });
    return ends;
}

struct Target
{
    int x, y;
    int square;  // of the distance
};

Target targetOf(const End& end, const EdgeBits& edges, int reach)
{
    Target best{0, 0, reach * reach + 1};
    for (int y = std::max(end.y - reach, 0); y <= std::min(end.y + reach, int(edges.height()) - 1); ++y)
        for (int x = std::max(end.x - reach, 0); x <= std::min(end.x + reach, int(edges.width()) - 1); ++x) {
            const int dx = x - end.x;
            const int dy = y - end.y;
            const int square = dx * dx + dy * dy;
            if (square >= best.square || !edges.isEdge(std::size_t(x), std::size_t(y))) continue;
            if (2 * (float(dx) * end.dx + float(dy) * end.dy) < std::sqrt(float(square))) continue;
            const auto pixel = std::uint32_t(y) * std::uint32_t(edges.width()) + std::uint32_t(x);
            const auto own = std::span(end.own).first(end.ownCount);
            if (std::ranges::find(own, pixel) == own.end()) best = {x, y, square};
        }
    return best;
}

// Connected components: labels runs of pixels row by row and merges the labels of runs that touch
// (union-find, where the parent of a merged label is smaller).
class Regions
{
  public:
    Regions(std::size_t width, std::size_t height, std::vector<EnclosedRegion>& found, Scratch scratch)
        : width_(int(width)),
          height_(int(height)),
          found_(found),
          parent_(scratch),
          above_(scratch),
          here_(scratch)
    {
        above_.reserve(width / 2 + 1);
        here_.reserve(width / 2 + 1);
        found_.clear();
    }

    void beginRow()
    {
        std::swap(above_, here_);
        here_.clear();
        next_ = 0;
    }
    // Adds the pixels from `left` to `right` of row y. Runs of a row are added from left to right.
    void add(int left, int right, int y)
    {
        while (next_ < above_.size() && above_[next_].right < left) ++next_;
        std::uint32_t label = kNone;
        for (std::size_t i = next_; i < above_.size() && above_[i].left <= right; ++i)
            label = label == kNone ? rootOf(above_[i].label) : join(label, rootOf(above_[i].label));
        if (label == kNone) {
            label = std::uint32_t(found_.size());
            parent_.push_back(label);
            found_.push_back({.left = left, .top = y, .right = right, .bottom = y});
        }
        here_.push_back({left, right, label});
        EnclosedRegion& r = found_[label];
        const std::int64_t count = right - left + 1;
        r.area += count;
        r.x += double((std::int64_t{left} + right) * count / 2);
        r.y += double(y * count);
        r.left = std::min(r.left, left);
        r.right = std::max(r.right, right);
        r.bottom = y;
        r.open = r.open || left == 0 || right == width_ - 1 || y == 0 || y == height_ - 1;
    }
    void finish()
    {
        std::size_t kept = 0;
        for (std::size_t i = 0; i < found_.size(); ++i) {
            if (parent_[i] != i) continue;
            EnclosedRegion& r = found_[kept++] = found_[i];
            r.x /= double(r.area);
            r.y /= double(r.area);
        }
        found_.resize(kept);
    }

  private:
    static constexpr std::uint32_t kNone = UINT32_MAX;
    struct Run
    {
        int left, right;
        std::uint32_t label;
    };

    std::uint32_t rootOf(std::uint32_t label)
    {
        while (parent_[label] != label) label = parent_[label] = parent_[parent_[label]];
        return label;
    }
    std::uint32_t join(std::uint32_t a, std::uint32_t b)
    {
        if (a == b) return a;
        if (a > b) std::swap(a, b);
        parent_[b] = a;
        EnclosedRegion& to = found_[a];
        const EnclosedRegion& from = found_[b];
        to.area += from.area;
        to.x += from.x;
        to.y += from.y;
        to.left = std::min(to.left, from.left);
        to.right = std::max(to.right, from.right);
        to.bottom = std::max(to.bottom, from.bottom);
        to.open = to.open || from.open;
        return a;
    }

    int width_, height_;
    std::vector<EnclosedRegion>& found_;
    std::pmr::vector<std::uint32_t> parent_;
    std::pmr::vector<Run> above_, here_;
    std::size_t next_ = 0;  // the first run above that the next one may touch
};

}  // namespace

int fillGaps(EdgeBits& edges, int reach, PathTracer& tracer, Scratch scratch)
{
    int filled = 0;
    for (const End& end : endsOf(edges, tracer.trace(edges), scratch)) {
        const Target target = targetOf(end, edges, reach);
        if (target.square > reach * reach) continue;
        const int steps = std::max(std::abs(target.x - end.x), std::abs(target.y - end.y));
        for (int i = 1; i < steps; ++i)
            edges.setEdge(std::size_t(end.x + std::lround(double(i) * (target.x - end.x) / steps)),
                          std::size_t(end.y + std::lround(double(i) * (target.y - end.y) / steps)));
        ++filled;
    }
    return filled;
}

void enclosedRegions(const EdgeBits& edges, std::vector<EnclosedRegion>& regions, Scratch scratch)
{
    const auto width = int(edges.width());
    Regions all(edges.width(), edges.height(), regions, scratch);
    for (std::size_t y = 0; y < edges.height(); ++y) {
        const std::uint64_t* row = edges.edges(y);
        all.beginRow();
        int left = 0;  // start of the current run
        for (std::size_t w = 0; w < edges.wordsPerRow(); ++w)
            for (std::uint64_t bits = row[w]; bits != 0; bits &= bits - 1) {
                const int x = int(64 * w) + std::countr_zero(bits);
                if (x > left) all.add(left, x - 1, int(y));
                left = x + 1;
            }
        if (left < width) all.add(left, width - 1, int(y));
    }
    all.finish();
}

}  // namespace scansteps::edges
