// Corner responses of the pixels of an 8-bit image: two responses on one scale, and their local maxima.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "core/scratch_arena.h"
#include "grey/grey_image.h"

namespace scansteps::corners {

enum class CornerKind
{
    /// Square root of the smaller eigenvalue of the structure tensor (J. Shi and C. Tomasi, "Good Features to
    /// Track", CVPR 1994): corners, crossings, ends of lines.
    minEigenvalue = 0,
    /// Fourth root of the determinant of the Hessian where that is positive (P. Beaudet, "Rotationally
    /// invariant image operators", ICPR 1978): blobs, dark or bright, and the insides of corners.
    hessian = 1,
};

struct ResponseSettings
{
    CornerKind kind = CornerKind::minEigenvalue;
    /// Sizes of box filters (odd, 1 to 31; others are rounded up or clamped). The first is applied to the
    /// image, the second to the tensor's products or, for the Hessian, to the image again.
    int lowPass1 = 1;
    int lowPass2 = 3;
};

/// The response of every pixel, rows × columns floats: a monotonic function of the score, cheaper to compute;
/// scoreOf() converts it. Beyond the borders the outermost pixels are repeated. Sums are exact integers, so
/// the result does not depend on the instruction set.
void cornerResponse(grey::GreyView image, const ResponseSettings& settings, std::span<float> response,
                    Scratch scratch = {});

/// Converts a response to a score, and back. Scores are in grey levels: the tensor's is 6.4 times the root of
/// the smaller eigenvalue of the mean tensor of gradients (grey levels per pixel), the Hessian's 11 times the
/// fourth root of the determinant, with the kernels (1 2 1) x (1 -2 1) and (1 0 -1) x (1 0 -1). A
/// right-angled corner between levels 100 apart, blurred over two pixels, scores 137. With a threshold of 40
/// a photograph of 640 x 480 has from a few hundred to two thousand corners, and sensor noise of five levels
/// almost none.
float scoreOf(CornerKind kind, float response);
float responseOf(CornerKind kind, float score);

struct Peak
{
    int x, y;
    float value;
    bool operator==(const Peak&) const = default;
};

/// Local maxima of a plane of `width` × `height`, in row order, at least `margin` pixels (1 or more) from the
/// border: value > threshold, > the neighbours before it in row order and >= those after it
/// (8-neighbourhood). Replaces the contents of `peaks`.
void findPeaks(std::span<const float> plane, int width, int height, int margin, float threshold,
               std::vector<Peak>& peaks);

namespace scalar {
void cornerResponse(grey::GreyView image, const ResponseSettings& settings, std::span<float> response);
void findPeaks(std::span<const float> plane, int width, int height, int margin, float threshold,
               std::vector<Peak>& peaks);
}  // namespace scalar

}  // namespace scansteps::corners
