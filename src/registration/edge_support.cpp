// Support points along polylines, ridge images of polylines, and edge detection in views.
#include "registration/edge_support.h"

#include <algorithm>
#include <cmath>

namespace scansteps::registration {
namespace {

constexpr int kCell = 8;
constexpr int kBorder = 2 * kCell;

// Thresholds of the 3 x 3 Sobel magnitude: slopes of 5 and 12.5 grey levels per pixel.
constexpr double kLow = 40;
constexpr double kHigh = 100;

// The steepest pixel found in a cell.
struct Cell
{
    int steepness = 0;
    SupportPoint at{-1, -1};
};

class Cells
{
  public:
    Cells(grey::GreyView image, float minGradient)
        : image_(image),
          minSteepness_(int(4 * minGradient * minGradient)),
          across_((image.width + kCell - 1) / kCell),
          cells_(std::size_t(across_) * std::size_t((image.height + kCell - 1) / kCell))
    {
    }

    void add(float x, float y)
    {
        if (!(x >= kBorder && y >= kBorder && x < float(image_.width - kBorder) &&
              y < float(image_.height - kBorder)))
            return;
        const int ix = int(x + 0.5F);
        const int iy = int(y + 0.5F);
        const std::uint8_t* p = image_.row(iy) + ix;
        const int dx = p[1] - p[-1];
        const int dy = p[image_.stride] - p[-image_.stride];
        const int steepness = dx * dx + dy * dy;
        Cell& cell = cells_[std::size_t(iy / kCell * across_ + ix / kCell)];
        if (steepness < minSteepness_ || steepness <= cell.steepness) return;
        cell = {steepness, {float(ix), float(iy)}};
    }

    std::vector<SupportPoint> points() const
    {
        std::vector<SupportPoint> result;
        for (const Cell& cell : cells_)
            if (cell.steepness > 0) result.push_back(cell.at);
        return result;
    }

  private:
    grey::GreyView image_;
    int minSteepness_, across_;
    std::vector<Cell> cells_;
};

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

std::vector<SupportPoint> pointsOnEdges(const edges::Polylines& lines, grey::GreyView image,
                                        float minGradient)
{
    if (image.width <= 2 * kBorder || image.height <= 2 * kBorder) return {};
    Cells cells(image, minGradient);
    forEachSegment(lines, [&](edges::Vertex a, edges::Vertex b) {
        walkSegment(a, b, image.width, image.height, [&](float x, float y) { cells.add(x, y); });
    });
    return cells.points();
}

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

const edges::Polylines& EdgeFinder::edgesOf(grey::GreyView image)
{
    lines_.clear();
    if (image.width <= 0 || image.height <= 0) return lines_;
    plane_.resize(std::uint32_t(image.width), std::uint32_t(image.height));
    for (int y = 0; y < image.height; ++y) std::copy_n(image.row(y), image.width, plane_.row(std::size_t(y)));
    edges::subpixelEdges(plane_, kLow, kHigh, 3, planes_, edges_, positions_, &memory_);
    edges::tracePolylines(edges_, tracer_, lines_, positions_, edges::kPolylineTolerance, &memory_);
    return lines_;
}

}  // namespace scansteps::registration
