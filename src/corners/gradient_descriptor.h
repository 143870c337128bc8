// Orientations and binary descriptor of a point from the gradients around it: what registration matches, as
// blur and curved responses of a camera leave it more alike than comparisons of grey values.
#pragma once

#include <array>
#include <span>

#include "corners/corner_descriptor.h"
#include "grey/grey_image.h"

namespace scansteps::corners {

/// Distance from the border, in pixels, that points must keep in both functions.
inline constexpr int kGradientMargin = 16;

struct Orientations
{
    std::array<float, 2> angle{};  ///< radians, from +x towards +y
    int count = 0;
};

/// The directions in which gradients add up most within 12 pixels of a point: the strongest, and a second one
/// that reaches 0.8 of it. No direction where the image is flat. After D. Lowe, "Distinctive Image Features
/// from Scale-Invariant Keypoints", IJCV 2004.
Orientations gradientOrientations(grey::GreyView image, float x, float y);

/// 256 bits from a histogram of 4 × 4 cells of 4 pixels and 8 directions, in a frame rotated by `angle`
/// radians: bit i tells whether bin i exceeds 0.35 of the mean of all bins, bit 128 + i whether it exceeds
/// 1.3 of it. The histogram is Lowe's; relating bins to their sum is the normalisation of R. Arandjelović and
/// A. Zisserman, "Three things everyone should know to improve object retrieval", CVPR 2012; two thresholds
/// to a bin are from W. Zhou et al., "Scalar Quantization for Large Scale Image Search", ACM MM 2012.
/// `image` should be smoothed. Results do not depend on the instruction set. The last word is zero.
CornerDescriptor describeGradients(grey::GreyView image, float x, float y, float angle);

namespace scalar {
Orientations gradientOrientations(grey::GreyView image, float x, float y);
CornerDescriptor describeGradients(grey::GreyView image, float x, float y, float angle);
}  // namespace scalar

}  // namespace scansteps::corners
