// How much of a corner each pixel of an 8-bit image is: two responses on one scale, and their local maxima.
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
    /// Box filters (odd sizes 1 to 31; others are rounded up or limited): the first is run over the image,
    /// the second over the tensor's products, or, for the Hessian, over the image once more.
    int lowPass1 = 1;
    int lowPass2 = 3;
};

/// The response of every pixel, rows × columns floats, in a form that is quick to make and grows with the
/// score; `scoreOf` gives the score itself. Beyond the borders the image is continued by its outermost
/// pixels. Sums are exact integers, so the result does not depend on the processor.
void cornerResponse(grey::GreyView image, const ResponseSettings& settings, std::span<float> response,
                    Scratch scratch = {});

/// The score of a response, and the reverse. Scores are in grey levels: the tensor's is 6.4 times the root of
/// the smaller eigenvalue of the mean tensor of gradients (grey levels a pixel), the Hessian's 11 times the
/// fourth root of the determinant, with the kernels (1 2 1) x (1 -2 1) and (1 0 -1) x (1 0 -1). A
/// right-angled corner between levels 100 apart, two pixels soft, scores 137. At 40 a photograph of 640 x 480
/// has some hundreds to two thousand corners, and sensor noise of five levels has hardly any.
float scoreOf(CornerKind kind, float response);
float responseOf(CornerKind kind, float score);

struct Peak
{
    int x, y;
    float value;
    bool operator==(const Peak&) const = default;
};

/// Local maxima of a plane of `width` × `height` at least `margin` pixels (1 or more) from the border:
/// `value` > threshold, > the neighbours before it in row order and >= those after it (8-neighbourhood).
/// Replaces the contents of `peaks`; row order.
void findPeaks(std::span<const float> plane, int width, int height, int margin, float threshold,
               std::vector<Peak>& peaks);

namespace scalar {
void cornerResponse(grey::GreyView image, const ResponseSettings& settings, std::span<float> response);
void findPeaks(std::span<const float> plane, int width, int height, int margin, float threshold,
               std::vector<Peak>& peaks);
}  // namespace scalar

}  // namespace scansteps::corners
