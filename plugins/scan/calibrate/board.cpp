// Grids of corners, and the dots that locate them.
#include "board.h"

#include <array>
#include <deque>
#include <map>
#include <optional>
#include <utility>

namespace scansteps::scan {
namespace {

using Eigen::Vector2d;
using Eigen::Vector2i;
using Index = std::pair<int, int>;
using Grid = std::map<Index, Vector2d>;

/// Candidates in cells, to find the nearest one to a place.
class Candidates
{
  public:
    Candidates(const GreyImage& image, const std::vector<Vector2d>& points)
        : points_(points),
          columns_(image.width / kCell + 1),
          cells_(static_cast<std::size_t>(columns_ * (image.height / kCell + 1)))
    {
        for (std::size_t i = 0; i < points.size(); ++i)
            cells_[static_cast<std::size_t>(cellOf(points[i].y()) * columns_ + cellOf(points[i].x()))]
                .push_back(static_cast<int>(i));
    }
    /// -1 if there is none within `reach`.
    int nearest(const Vector2d& place, double reach) const
    {
        int best = -1;
        const int rows = static_cast<int>(cells_.size()) / columns_;
        for (int y = std::max(cellOf(place.y() - reach), 0);
             y <= std::min(cellOf(place.y() + reach), rows - 1); ++y) {
            for (int x = std::max(cellOf(place.x() - reach), 0);
                 x <= std::min(cellOf(place.x() + reach), columns_ - 1); ++x) {
                for (const int i : cells_[static_cast<std::size_t>(y * columns_ + x)]) {
                    const double distance = (points_[static_cast<std::size_t>(i)] - place).norm();
                    if (distance >= reach) continue;
                    reach = distance;
                    best = i;
                }
            }
        }
        return best;
    }

  private:
    static constexpr int kCell = 16;
    static int cellOf(double x) { return static_cast<int>(std::floor(std::clamp(x, -1e6, 1e6) / kCell)); }
    const std::vector<Vector2d>& points_;
    int columns_;
    std::vector<std::vector<int>> cells_;
};

constexpr std::array<Index, 4> kSteps{{{1, 0}, {0, 1}, {-1, 0}, {0, -1}}};

/// The mean brightness of the two squares on the diagonal of a step from a corner minus that of the other
/// two, which changes its sign from corner to corner.
double polarity(const GreyImage& image, const Vector2d& at, const Vector2d& x, const Vector2d& y)
{
    const auto value = [&](double a, double b) {
        const Vector2d place = at + 0.3 * (a * x + b * y);
        return image.sample(place.x(), place.y());
    };
    return value(1, 1) + value(-1, -1) - value(1, -1) - value(-1, 1);
}

/// Two steps to neighbours of a corner, across each other, x to y from right to down; {} if there are none.
std::optional<std::array<Vector2d, 2>> firstSteps(const GreyImage& image, const std::vector<Vector2d>& points,
                                                  int seed)
{
    const Vector2d& at = points[static_cast<std::size_t>(seed)];
    std::vector<Vector2d> near;
    for (std::size_t i = 0; i < points.size(); ++i)
        if (static_cast<int>(i) != seed) near.push_back(points[i] - at);
    const std::size_t count = std::min<std::size_t>(near.size(), 8);
    std::partial_sort(near.begin(), near.begin() + static_cast<std::ptrdiff_t>(count), near.end(),
                      [](const Vector2d& a, const Vector2d& b) { return a.squaredNorm() < b.squaredNorm(); });
    near.resize(count);
    for (const Vector2d& x : near) {
        for (const Vector2d& y : near) {
            const double across = x.x() * y.y() - x.y() * y.x();
            if (across < 0.3 * x.norm() * y.norm()) continue;
            // Along edges, not diagonals: the quarters between the two steps are clearly different, and the
            // neighbours have the opposite polarity.
            const double here = polarity(image, at, x, y);
            if (here * polarity(image, at + x, x, y) < 0 && here * polarity(image, at + y, x, y) < 0)
                return std::array{x, y};
        }
    }
    return {};
}

/// The place of the neighbour of a corner of the grid, from the corners around it.
Vector2d predict(const Grid& grid, const Index& at, const Index& step, const std::array<Vector2d, 2>& first)
{
    const Vector2d& here = grid.at(at);
    const auto back = grid.find({at.first - step.first, at.second - step.second});
    if (back != grid.end()) return 2 * here - back->second;
    for (const Index& side : kSteps) {
        if (side.first * step.first + side.second * step.second != 0) continue;
        const auto beside = grid.find({at.first + side.first, at.second + side.second});
        const auto ahead =
            grid.find({at.first + side.first + step.first, at.second + side.second + step.second});
        if (beside != grid.end() && ahead != grid.end()) return here + ahead->second - beside->second;
    }
    return here + step.first * first[0] + step.second * first[1];
}

Grid grow(const GreyImage& image, const Candidates& candidates, const std::vector<Vector2d>& points, int seed,
          const std::array<Vector2d, 2>& first)
{
    Grid grid{{{0, 0}, points[static_cast<std::size_t>(seed)]}};
    std::vector<bool> used(points.size());
    used[static_cast<std::size_t>(seed)] = true;
    const bool even = polarity(image, points[static_cast<std::size_t>(seed)], first[0], first[1]) > 0;
    std::deque<Index> open{{0, 0}};
    while (!open.empty()) {
        const Index at = open.front();
        open.pop_front();
        for (const Index& step : kSteps) {
            const Index next{at.first + step.first, at.second + step.second};
            if (grid.contains(next)) continue;
            const Vector2d place = predict(grid, at, step, first);
            const Vector2d way = place - grid[at];
            const int found = candidates.nearest(place, 0.25 * way.norm());
            if (found < 0 || used[static_cast<std::size_t>(found)]) continue;
            const Vector2d& point = points[static_cast<std::size_t>(found)];
            const Vector2d turned(-way.y(), way.x());
            const bool alongX = step.second == 0;
            const double sign = step.first + step.second;
            const Vector2d x = sign * (alongX ? way : Vector2d(-turned));
            const Vector2d y = sign * (alongX ? turned : way);
            const bool odd = (next.first + next.second) % 2 != 0;
            if ((polarity(image, point, x, y) > 0) != (even != odd)) continue;
            used[static_cast<std::size_t>(found)] = true;
            grid[next] = point;
            open.push_back(next);
        }
    }
    return grid;
}

using Cells = std::vector<Index>;

/// Squares with a dot: the middle differs from the rest of the square, which is that of a square of its
/// colour.
Cells dottedCells(const GreyImage& image, const Grid& grid)
{
    Cells dots;
    for (const auto& [index, a] : grid) {
        const auto [i, j] = index;
        const auto b = grid.find({i + 1, j});
        const auto c = grid.find({i + 1, j + 1});
        const auto d = grid.find({i, j + 1});
        if (b == grid.end() || c == grid.end() || d == grid.end()) continue;
        const Vector2d centre = (a + b->second + c->second + d->second) / 4;
        const auto towards = [&](const Vector2d& corner) {
            const Vector2d place = centre + 0.7 * (corner - centre);
            return image.sample(place.x(), place.y());
        };
        const double rest = (towards(a) + towards(b->second) + towards(c->second) + towards(d->second)) / 4;
        const auto beyond = [&](const Vector2d& p, const Vector2d& q) {
            const Vector2d place =
                centre + 1.4 * ((p + q) / 2 - centre);  // in the next square, beside its dot
            return image.sample(place.x(), place.y());
        };
        const double other = (beyond(a, b->second) + beyond(b->second, c->second) +
                              beyond(c->second, d->second) + beyond(d->second, a)) /
                             4;
        const double middle = image.sample(centre.x(), centre.y());
        if ((middle - rest) * (other - rest) > 0.5 * (other - rest) * (other - rest)) dots.push_back(index);
    }
    return dots;
}

/// Square A and the steps of x and y in indices of the grid.
struct Location
{
    Index a, x, y;
};

std::optional<Location> locate(const Cells& dots)
{
    std::optional<Location> found;
    for (const Index& a : dots) {
        for (const Index& b : dots) {
            const Index x{b.first - a.first, b.second - a.second};
            if (std::abs(x.first) + std::abs(x.second) != 1) continue;
            for (const Index& c : dots) {
                const Index y{c.first - a.first, c.second - a.second};
                if (std::abs(y.first) + std::abs(y.second) != 2 ||
                    x.first * y.first + x.second * y.second != 0)
                    continue;
                if (std::abs(y.first) == 1) continue;
                if (found) return {};  // more dots than there can be: do not guess
                found = Location{a, x, {y.first / 2, y.second / 2}};
            }
        }
    }
    return found;
}

}  // namespace

std::vector<BoardCorner> largestGrid(const GreyImage& image, const std::vector<Vector2d>& candidates)
{
    const Candidates cells(image, candidates);
    Grid best;
    // Any corner of the board will do as a start; the strongest candidates are on it unless the picture is
    // full of others.
    const int tries = static_cast<int>(std::min<std::size_t>(candidates.size(), 40));
    for (int seed = 0; seed < tries; ++seed) {
        const auto first = firstSteps(image, candidates, seed);
        if (!first) continue;
        Grid grid = grow(image, cells, candidates, seed, *first);
        if (grid.size() > best.size()) best = std::move(grid);
        if (best.size() > candidates.size() / 2) break;
    }
    std::vector<BoardCorner> corners;
    for (const auto& [index, pixel] : best) corners.push_back({Vector2i(index.first, index.second), pixel});
    return corners;
}

Board findBoard(const GreyImage& image)
{
    Board board;
    const std::vector<BoardCorner> rough = largestGrid(image, cornerCandidates(image));
    if (rough.size() < 9) return board;
    Grid grid;
    for (const BoardCorner& corner : rough) grid[{corner.index.x(), corner.index.y()}] = corner.pixel;
    for (BoardCorner corner : rough) {
        double nearest = 1e9;
        for (const Index& step : kSteps) {
            const auto other = grid.find({corner.index.x() + step.first, corner.index.y() + step.second});
            if (other != grid.end()) nearest = std::min(nearest, (other->second - corner.pixel).norm());
        }
        // Without the dots, which begin a third of a square away.
        const Vector2d refined = refineCorner(image, corner.pixel, std::clamp(0.3 * nearest, 2.0, 8.0));
        if (!((refined - corner.pixel).norm() < 0.25 * nearest)) continue;
        corner.pixel = refined;
        board.corners.push_back(corner);
    }
    if (board.corners.size() < 9) return {};
    const auto location = locate(dottedCells(image, grid));
    if (!location) return board;
    board.located = true;
    const auto& [a, x, y] = *location;
    board.mirrored = x.first * y.second - x.second * y.first < 0;
    // Square A's corner of lowest x and y.
    const Vector2i origin(a.first + (x.first + y.first < 0 ? 1 : 0),
                          a.second + (x.second + y.second < 0 ? 1 : 0));
    for (BoardCorner& corner : board.corners) {
        const Vector2i way = corner.index - origin;
        corner.index = {way.x() * x.first + way.y() * x.second, way.x() * y.first + way.y() * y.second};
    }
    return board;
}

}  // namespace scansteps::scan
