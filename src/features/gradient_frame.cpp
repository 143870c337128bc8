#include "features/gradient_frame.h"

#include "features/gradient_length.h"
#include "features/mcanny.h"
#include "scansteps/error.h"

namespace scansteps {
namespace {

// What a derivative kernel makes of a ramp of slope 1, its smoothing across included.
float rampGain(int aperture)
{
    return aperture == 3 ? 2 * 4 : aperture == 5 ? 8 * 16 : 32 * 64;
}

}  // namespace

void gradientFrame16(std::span<std::uint16_t> frame, int width, int height, Frame16 meaning, int lowPasses,
                     int aperture, FloatPlane& dx, FloatPlane& dy, Scratch scratch)
{
    if (aperture != 3 && aperture != 5 && aperture != 7) fail("aperture_size wrong");
    if (width <= 0 || height <= 0) return;
    FloatPlane& image = dy;
    frame16ToPlane(frame, image, std::size_t(width), std::size_t(height), meaning);
    for (int i = 0; i < lowPasses; ++i) lowPass(image, 3, scratch);
    Sobel(image, dx, 1, 0, aperture, scratch);
    Sobel(image, dy, 0, 1, aperture, scratch);
    const float factor = 8 / rampGain(aperture);
    for (std::size_t y = 0; y < std::size_t(height); ++y)
        gradientLengths(dx.samples(y), dy.samples(y), factor, 32767.0F, dy.samples(y));
    edgesToFrame16(dy, frame);
}

}  // namespace scansteps
