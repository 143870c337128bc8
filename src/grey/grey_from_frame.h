// Conversion of 16-bit frames to 8-bit grey images.
#pragma once

#include <cstdint>
#include <span>

#include "grey/grey_image.h"
#include "grey/sample_coding.h"

namespace scansteps::grey {

/// Luma of YUYV16 samples, or offset 16-bit samples minus 32768, clamped to 0 ... 255. The image is resized
/// to width × height. Throws when the frame holds fewer samples.
void greyFromFrame(std::span<const std::uint16_t> frame, int width, int height, SampleCoding coding,
                   GreyImage& out);

/// The same, but without clamping: the range of the frame, lowest to highest sample, is stretched to 0 ...
/// 255.
void stretchedGreyFromFrame(std::span<const std::uint16_t> frame, int width, int height, SampleCoding coding,
                            GreyImage& out);

}  // namespace scansteps::grey
