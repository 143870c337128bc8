// Length of the colour vector of RGB pixels as offset 16-bit samples.
#pragma once

#include <cmath>
#include <cstdint>
#include <span>

#include "core/sample_values.h"

namespace scansteps::pixels {

/// Sample = integer part of (255 m + 32768), the sum in double precision, m = sqrt((a1 a1 + a0 a0) + a2 a2)
/// in single precision with a_k = c_k * 0.003921568859368563f: 32768 (black) to 33209 (white). `src` holds
/// three bytes per sample of `dst`; converts min(src / 3, dst) pixels. Never throws.
void colourLength(std::span<const std::uint8_t> src, std::span<std::uint16_t> dst);

namespace scalar {

/// The sample of the pixel at `rgb`.
inline std::uint16_t colourLength(const std::uint8_t* rgb)
{
    constexpr float kUnit = 0.003921568859368563F;
    const float a0 = float(rgb[0]) * kUnit, a1 = float(rgb[1]) * kUnit, a2 = float(rgb[2]) * kUnit;
    const float m = std::sqrt((a1 * a1 + a0 * a0) + a2 * a2);
    return static_cast<std::uint16_t>(m * 255.0 + kOffset16Zero);
}

void colourLength(std::span<const std::uint8_t> src, std::span<std::uint16_t> dst);

}  // namespace scalar

}  // namespace scansteps::pixels
