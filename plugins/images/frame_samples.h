// Frames as samples to be written: 8-bit RGB, offset 16-bit and YUYV16 frames at 8 or 16 bits.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "encode.h"

namespace scansteps::imageio {

/// 8-bit samples times 257, so that 255 becomes 65535. Spans of the same length.
void widen(std::span<const std::uint8_t> from, std::span<std::uint16_t> to);
/// Offset samples at 8 bits: sample - 32768, clamped to 0 ... 255. Spans of the same length.
void narrow(std::span<const std::uint16_t> from, std::span<std::uint8_t> to);

/// Converts frames; holds the memory of what it returns.
class FrameSamples
{
  public:
    /// `rgb` holds 3 × width × height samples. `bits` is 8 or 16.
    Samples ofRgb(std::span<const std::uint8_t> rgb, int width, int height, int bits);
    /// `samples` holds width × height offset samples; with 16 bits they are written as they are.
    Samples ofOffset16(std::span<const std::uint16_t> samples, int width, int height, int bits);
    /// YUYV16 frames as RGB.
    Samples ofYuyv16(std::span<const std::uint16_t> samples, int width, int height, int bits);

  private:
    std::vector<std::uint8_t> rgb_, narrow_;
    std::vector<std::uint16_t> wide_;
};

}  // namespace scansteps::imageio
