// Which features have others of their kind nearby.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "corners/corners.h"

namespace scansteps::corners {

struct NeighbourFilter
{
    float radius = 48;   ///< pixels within which neighbours are looked for
    int distance = 100;  ///< bits in which the descriptors of like features differ at most
    int count = 2;       ///< like neighbours that a feature needs
};

/// Indices of the features that have enough like neighbours, rising. Neighbours come from a hash of the
/// plane's cells, so the time grows with the number of features and of their neighbours only. The result does
/// not depend on the order of the features.
std::vector<std::uint32_t> withLikeNeighbours(std::span<const CornerFeature> features,
                                              const NeighbourFilter& settings);

}  // namespace scansteps::corners
