// Gradient magnitude of 16-bit frames: the kernel of cedge.
#pragma once

#include <cstdint>
#include <span>

#include "edges/canny_frame16.h"
#include "edges/float_plane.h"

namespace scansteps::edges {

/// Replaces every sample of a frame of width × height by the length of its gradient + 32768, truncated,
/// limited to 65535, after `lowPasses` box filters of 3 × 3. The derivatives are Sobel's of size `aperture`
/// (3, 5 or 7, else "aperture_size wrong" is thrown), scaled so that a ramp has the same magnitude for each
/// aperture: eight times its slope in levels per pixel, as with 3 × 3. `dx` and `dy` are work memory. Throws
/// when the frame holds fewer samples than width × height; does nothing when a side is 0 or negative.
void gradientFrame16(std::span<std::uint16_t> frame, int width, int height, grey::SampleCoding coding,
                     int lowPasses, int aperture, FloatPlane& dx, FloatPlane& dy, Scratch scratch = {});

}  // namespace scansteps::edges
