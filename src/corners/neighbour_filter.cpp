// Search for similar neighbours with a spatial hash.
#include "corners/neighbour_filter.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace scansteps::corners {
namespace {

// Cells as wide as the radius, so that all neighbours are in the 3 × 3 cells around; hashed after M. Teschner
// et al., "Optimized Spatial Hashing for Collision Detection of Deformable Objects", VMV 2003.
class CellHash
{
  public:
    CellHash(std::span<const CornerFeature> features, float cell)
        : cell_(cell), mask_(std::bit_ceil(std::max<std::size_t>(features.size(), 1)) - 1)
    {
        begin_.resize(mask_ + 2);
        entries_.resize(features.size());
        for (const CornerFeature& f : features) ++begin_[bucketOf(at(f.x), at(f.y)) + 1];
        for (std::size_t i = 1; i < begin_.size(); ++i) begin_[i] += begin_[i - 1];
        std::vector<std::uint32_t> next(begin_.begin(), begin_.end() - 1);
        for (std::uint32_t i = 0; i < features.size(); ++i)
            entries_[next[bucketOf(at(features[i].x), at(features[i].y))]++] = i;
    }
    int at(float v) const { return int(std::floor(v / cell_)); }
    /// All features in the bucket of a cell, which other cells may share.
    std::span<const std::uint32_t> bucket(int x, int y) const
    {
        const std::size_t b = bucketOf(x, y);
        return std::span(entries_).subspan(begin_[b], begin_[b + 1] - begin_[b]);
    }

  private:
    std::size_t bucketOf(int x, int y) const
    {
        return (std::size_t(x) * 73856093U ^ std::size_t(y) * 19349663U) & mask_;
    }

    float cell_;
    std::size_t mask_;
    std::vector<std::uint32_t> begin_, entries_;
};

}  // namespace

std::vector<std::uint32_t> withSimilarNeighbours(std::span<const CornerFeature> features,
                                                 const NeighbourFilter& settings)
{
    const CellHash hash(features, settings.radius);
    std::vector<std::uint32_t> kept;
    for (std::uint32_t i = 0; i < features.size(); ++i) {
        const CornerFeature& f = features[i];
        int similar = 0;
        const int cx = hash.at(f.x);
        const int cy = hash.at(f.y);
        for (int y = cy - 1; y <= cy + 1 && similar < settings.count; ++y)
            for (int x = cx - 1; x <= cx + 1 && similar < settings.count; ++x)
                for (const std::uint32_t j : hash.bucket(x, y)) {
                    const CornerFeature& g = features[j];
                    if (j == i || hash.at(g.x) != x || hash.at(g.y) != y) continue;
                    if (std::hypot(g.x - f.x, g.y - f.y) > settings.radius) continue;
                    similar += hammingDistance(f.bits, g.bits) <= settings.distance;
                }
        if (similar >= settings.count) kept.push_back(i);
    }
    return kept;
}

}  // namespace scansteps::corners
