// 16-bit frames as 8-bit grey images, and lines drawn into 16-bit frames. The registration steps share it.
#pragma once

#include <cstdint>
#include <span>

#include "grey/grey_image.h"
#include "grey/sample_coding.h"

namespace scansteps::grey {

/// Luma of YUYV16 samples, or offset 16-bit samples less 32768, limited to 0 ... 255. The image takes the
/// size; `frame` holds width × height samples, else a text is thrown.
void greyFromFrame(std::span<const std::uint16_t> frame, int width, int height, SampleCoding coding,
                   GreyImage& out);

/// The same with the frame's own range, lowest to highest sample, spread over 0 ... 255.
void stretchedGreyFromFrame(std::span<const std::uint16_t> frame, int width, int height, SampleCoding coding,
                            GreyImage& out);

/// A line of one pixel's width in an image of `width` × `height` samples; what lies outside is left out.
/// Coordinates that are no numbers or beyond 10^6 draw nothing.
void drawLine(std::span<std::uint16_t> frame, int width, int height, double x1, double y1, double x2,
              double y2, std::uint16_t value);

/// What steps draw with: 255 as an offset 16-bit sample, and as YUYV16 with neutral chroma.
constexpr std::uint16_t inkOf(SampleCoding coding)
{
    return coding == SampleCoding::Yuyv16 ? 0x80FF : 33023;
}

}  // namespace scansteps::grey
