// Lines drawn into 16-bit frames.
#pragma once

#include <cstdint>
#include <span>

#include "core/sample_values.h"
#include "grey/sample_coding.h"

namespace scansteps::grey {

/// Draws a line, one pixel wide, from (x1, y1) to (x2, y2) in pixels into a frame of width × height samples,
/// clipped to the frame. Draws nothing when a coordinate is NaN or far outside (beyond 10^6).
void drawLine(std::span<std::uint16_t> frame, int width, int height, double x1, double y1, double x2,
              double y2, std::uint16_t value);

/// The sample value for white: 255 as an offset 16-bit sample, or as YUYV16 luma with neutral chroma.
constexpr std::uint16_t inkOf(SampleCoding coding)
{
    return coding == SampleCoding::Yuyv16 ? 0x80FF : kOffset16White;
}

}  // namespace scansteps::grey
