#include "features/gradient_frame.h"

#include <vector>

#include "features/gradient_length.h"
#include "features/mcanny.h"
#include "scansteps/error.h"

namespace scansteps {
namespace {

// What a derivative kernel makes of a ramp of slope 1, its smoothing across included.
float rampGain(int aperture)
{
    std::vector<float> kx, ky;
    getSobelKernels(kx, ky, 1, 0, aperture);
    float along = 0;
    float across = 0;
    for (std::size_t i = 0; i < kx.size(); ++i) {
        along += float(i) * kx[i];
        across += ky[i];
    }
    return along * across;
}

}  // namespace

void gradientFrame16(std::span<std::uint16_t> frame, int width, int height, Frame16 meaning, int lowPasses,
                     int aperture, FloatPlane& dx, FloatPlane& dy)
{
    if (aperture != 3 && aperture != 5 && aperture != 7) fail("aperture_size wrong");
    if (width <= 0 || height <= 0) return;
    FloatPlane& image = dy;
    frame16ToPlane(frame, image, std::size_t(width), std::size_t(height), meaning);
    for (int i = 0; i < lowPasses; ++i) lowPass(image, 3);
    Sobel(image, dx, 1, 0, aperture);
    Sobel(image, dy, 0, 1, aperture);
    const float factor = 8 / rampGain(aperture);
    for (std::size_t y = 0; y < std::size_t(height); ++y)
        gradientLengths(dx.samples(y), dy.samples(y), factor, 32767.0F, dy.samples(y));
    edgesToFrame16(dy, frame);
}

}  // namespace scansteps
