// Orientation and binary descriptor of a point in a smoothed 8-bit image, and the distance between
// descriptors.
#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <span>

#include "grey/grey_image.h"

namespace scansteps::corners {

/// Results of 320 comparisons, one per bit. The short form has 256; its last word is zero.
using CornerDescriptor = std::array<std::uint64_t, 5>;

/// Radius in pixels of the neighbourhood that must lie inside the image.
inline constexpr int kDescriptorRadius = 15;

/// Direction from the centre of a disc of radius 12 to its centre of intensity, radians from +x towards +y,
/// after P. Rosin, "Measuring corner properties", CVIU 1999. The disc must lie inside the image.
float orientationOf(grey::GreyView image, int x, int y);

/// Compares pairs of samples on rings around the point (x, y), rotated by `angle` radians, after S.
/// Leutenegger, M. Chli and R. Siegwart, "BRISK: Binary Robust Invariant Scalable Keypoints", ICCV 2011, with
/// a different pattern and different pairs. `image` should be smoothed. The point must be at least
/// kDescriptorRadius pixels inside the border. `fast` gives the short form.
CornerDescriptor describe(grey::GreyView image, float x, float y, float angle, bool fast);

/// Number of bits in which two descriptors differ.
inline int hammingDistance(const CornerDescriptor& a, const CornerDescriptor& b)
{
    int sum = 0;
    for (std::size_t i = 0; i < a.size(); ++i) sum += std::popcount(a[i] ^ b[i]);
    return sum;
}

}  // namespace scansteps::corners
