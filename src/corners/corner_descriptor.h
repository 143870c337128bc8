// Orientation and binary descriptor of a place in a smoothed 8-bit image, and the distance of descriptors.
#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <span>

#include "grey/grey_image.h"

namespace scansteps::corners {

/// 320 comparisons. The short form has 256; its last word is zero.
using CornerDescriptor = std::array<std::uint64_t, 5>;

/// Places closer than this to the border have no whole neighbourhood.
inline constexpr int kDescriptorRadius = 15;

/// Direction from the centre of a disc of radius 12 to its centre of intensity, radians from +x towards +y,
/// after P. Rosin, "Measuring corner properties", CVIU 1999. The disc must lie inside the image.
float orientationOf(grey::GreyView image, int x, int y);

/// Compares samples on rings around a place, turned by `angle`, with each other, after S. Leutenegger,
/// M. Chli and R. Siegwart, "BRISK: Binary Robust Invariant Scalable Keypoints", ICCV 2011, with a pattern
/// and pairs of its own. `image` should be smoothed. The place must be at least
/// kDescriptorRadius pixels inside the border.
CornerDescriptor describe(grey::GreyView image, float x, float y, float angle, bool fast);

/// Number of bits in which two descriptors differ.
inline int hammingDistance(const CornerDescriptor& a, const CornerDescriptor& b)
{
    int sum = 0;
    for (std::size_t i = 0; i < a.size(); ++i) sum += std::popcount(a[i] ^ b[i]);
    return sum;
}

}  // namespace scansteps::corners
