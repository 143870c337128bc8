// Selection of features that have similar features nearby: the kernel of cneig.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "corners/corners.h"

namespace scansteps::corners {

struct NeighbourFilter
{
    float radius = 48;   ///< of the neighbourhood, in pixels
    int distance = 100;  ///< maximum number of differing bits between the descriptors of similar features
    int count = 2;       ///< minimum number of similar neighbours
};

/// Indices, in ascending order, of the features that have enough similar neighbours. A spatial hash finds the
/// neighbours, so the time grows only with the number of features and of their neighbours. Which features are
/// selected does not depend on their order.
std::vector<std::uint32_t> withSimilarNeighbours(std::span<const CornerFeature> features,
                                                 const NeighbourFilter& settings);

}  // namespace scansteps::corners
