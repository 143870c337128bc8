// Filling of holes: division at narrow places, rings, and a membrane.
#include "hole_filling.h"

#include <Eigen/SparseCholesky>
#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <numbers>
#include <utility>

namespace scansteps::scan {
namespace {

using Vector = Eigen::Vector3d;
using Polygon = std::vector<std::uint32_t>;

class Filler
{
  public:
    explicit Filler(const std::vector<Vector>& border) : borderSize_(border.size())
    {
        patch_.vertices = border;
    }

    Patch fill()
    {
        Polygon border(borderSize_);
        for (std::size_t i = 0; i < borderSize_; ++i) border[i] = std::uint32_t(i);
        divide(std::move(border));
        if (patch_.vertices.size() > borderSize_) relax();
        return std::move(patch_);
    }

  private:
    const Vector& at(std::uint32_t n) const { return patch_.vertices[n]; }

    std::uint32_t add(const Vector& place)
    {
        patch_.vertices.push_back(place);
        return std::uint32_t(patch_.vertices.size() - 1);
    }

    // Position along the border of each corner, and the whole length at the end.
    std::vector<double> lengths(const Polygon& polygon) const
    {
        std::vector<double> sums(1, 0);
        for (std::size_t i = 0; i < polygon.size(); ++i)
            sums.push_back(sums.back() + (at(polygon[(i + 1) % polygon.size()]) - at(polygon[i])).norm());
        return sums;
    }

    // The two corners with the shortest chord compared with the way between them along the border.
    std::pair<std::size_t, std::size_t> narrowest(const Polygon& polygon,
                                                  const std::vector<double>& along) const
    {
        constexpr double kNarrow = 0.3;  // a circle with a jagged border has 0.45
        const std::size_t n = polygon.size(), apart = std::max<std::size_t>(6, n / 10), stride = n / 1500 + 1;
        double best = kNarrow;
        std::pair<std::size_t, std::size_t> found{0, 0};
        for (std::size_t i = 0; i < n; i += stride)
            for (std::size_t j = i + apart; j < n && j + apart <= i + n; j += stride) {
                const double way = std::min(along[j] - along[i], along[n] - along[j] + along[i]);
                const double ratio = (at(polygon[i]) - at(polygon[j])).norm() / std::max(way, 1e-12);
                if (ratio >= best) continue;
                best = ratio;
                found = {i, j};
            }
        return found;
    }

    // Narrow places are cut by chords with new vertices, whose sides cannot exist in the mesh already.
    void divide(Polygon polygon)
    {
        std::vector<Polygon> waiting{std::move(polygon)};
        while (!waiting.empty()) {
            const Polygon now = std::move(waiting.back());
            waiting.pop_back();
            const std::vector<double> along = lengths(now);
            const auto [i, j] = narrowest(now, along);
            if (i == j) {
                addRings(now, along);
                continue;
            }
            const Vector from = at(now[i]), to = at(now[j]);
            const auto parts =
                std::max(2L, std::lround((to - from).norm() * double(now.size()) / along.back()));
            Polygon chord;
            for (long k = 1; k < parts; ++k)
                chord.push_back(add(from + (to - from) * (double(k) / double(parts))));
            Polygon first(now.begin() + std::ptrdiff_t(i), now.begin() + std::ptrdiff_t(j) + 1),
                second(now.begin() + std::ptrdiff_t(j), now.end());
            first.insert(first.end(), chord.rbegin(), chord.rend());
            second.insert(second.end(), now.begin(), now.begin() + std::ptrdiff_t(i) + 1);
            second.insert(second.end(), chord.begin(), chord.end());
            waiting.push_back(std::move(first));
            waiting.push_back(std::move(second));
        }
    }

    struct Ring
    {
        Polygon corners;
        std::vector<double> place;  // along the border, 0 to 1; of the first corner again at the end
    };

    void addRings(const Polygon& polygon, std::vector<double> along)
    {
        if (polygon.size() == 3) {
            patch_.triangles.push_back({polygon[0], polygon[1], polygon[2]});
            return;
        }
        const double length = along.back(), radius = length / (2 * std::numbers::pi);
        Vector middle = Vector::Zero();
        for (std::size_t i = 0; i < polygon.size(); ++i)
            middle += (at(polygon[i]) + at(polygon[(i + 1) % polygon.size()])) *
                      (0.5 * (along[i + 1] - along[i]) / length);
        for (double& place : along) place /= length;
        constexpr double kGrowth = 1.25, kHeight = 0.87;  // of an equilateral triangle
        Ring outer{polygon, along};
        double spacing = length / double(polygon.size()), depth = 0;
        while (true) {
            depth += kHeight * spacing;
            spacing *= kGrowth;
            const double scale = 1 - depth / radius;
            const long count = std::lround(length * scale / spacing);
            if (count < 5) break;
            Ring inner;
            for (long k = 0; k <= count; ++k) inner.place.push_back(double(k) / double(count));
            std::size_t side = 0;
            for (long k = 0; k < count; ++k) {
                const double place = inner.place[std::size_t(k)];
                while (along[side + 1] <= place) ++side;
                const double share = (place - along[side]) / (along[side + 1] - along[side]);
                const Vector onBorder =
                    at(polygon[side]) * (1 - share) + at(polygon[(side + 1) % polygon.size()]) * share;
                inner.corners.push_back(add(middle + scale * (onBorder - middle)));
            }
            stitch(outer, inner);
            outer = std::move(inner);
        }
        const std::uint32_t centre = add(middle);
        for (std::size_t i = 0; i < outer.corners.size(); ++i)
            patch_.triangles.push_back(
                {outer.corners[i], outer.corners[(i + 1) % outer.corners.size()], centre});
    }

    void stitch(const Ring& outer, const Ring& inner)
    {
        const std::size_t a = outer.corners.size(), b = inner.corners.size();
        for (std::size_t i = 0, j = 0; i < a || j < b;) {
            const std::uint32_t p = outer.corners[i % a], q = inner.corners[j % b];
            if (i < a && (j == b || outer.place[i + 1] <= inner.place[j + 1])) {
                patch_.triangles.push_back({p, outer.corners[(i + 1) % a], q});
                ++i;
            } else {
                patch_.triangles.push_back({p, inner.corners[(j + 1) % b], q});
                ++j;
            }
        }
    }

    // Every new vertex in the mean of its neighbours, weighted by how near they were.
    void relax()
    {
        std::map<std::pair<std::uint32_t, std::uint32_t>, double> sides;
        for (const auto& t : patch_.triangles)
            for (std::size_t i = 0; i < 3; ++i) {
                const auto [low, high] = std::minmax(t[i], t[(i + 1) % 3]);
                sides[{low, high}] = 1 / std::max((at(low) - at(high)).norm(), 1e-6);
            }
        const auto size = Eigen::Index(patch_.vertices.size() - borderSize_);
        std::vector<Eigen::Triplet<double>> entries;
        Eigen::MatrixX3d right = Eigen::MatrixX3d::Zero(size, 3);
        const auto couple = [&](std::uint32_t a, std::uint32_t b, double weight) {
            if (a < borderSize_) return;
            const auto row = int(a - borderSize_);
            entries.emplace_back(row, row, weight);
            if (b >= borderSize_)
                entries.emplace_back(row, int(b - borderSize_), -weight);
            else
                right.row(row) += weight * at(b).transpose();
        };
        for (const auto& [side, weight] : sides) {
            couple(side.first, side.second, weight);
            couple(side.second, side.first, weight);
        }
        Eigen::SparseMatrix<double> matrix(size, size);
        matrix.setFromTriplets(entries.begin(), entries.end());
        const Eigen::SimplicialLDLT<Eigen::SparseMatrix<double>> solver(matrix);
        const Eigen::MatrixX3d places = solver.solve(right);
        if (solver.info() != Eigen::Success || !places.allFinite()) return;
        for (Eigen::Index i = 0; i < size; ++i)
            patch_.vertices[borderSize_ + std::size_t(i)] = places.row(i).transpose();
    }

    std::size_t borderSize_;
    Patch patch_;
};

}  // namespace

Patch fillHole(const std::vector<Vector>& border)
{
    return Filler(border).fill();
}

}  // namespace scansteps::scan
