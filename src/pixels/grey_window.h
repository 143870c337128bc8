// Window and level mapping of offset 16-bit samples to grey, as in medical image viewing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace scansteps::pixels {

/// Grey RGB triples (R = G = B) of offset 16-bit samples s: scale = 1 / window (1 where window is 0) and
/// v = (s - 32768 - level) * scale in single precision; then (v + 0.5) * 255 in double precision, truncated
/// and clamped to 0..255. The difference is computed in 64 bits, so every level is valid. `dst` holds three
/// bytes per sample of `src`; converts min(src, dst / 3) samples. Never throws.
void greyWindow(std::span<const std::uint16_t> src, std::span<std::uint8_t> dst, std::int32_t window,
                std::int32_t level);

namespace scalar {
void greyWindow(std::span<const std::uint16_t> src, std::span<std::uint8_t> dst, std::int32_t window,
                std::int32_t level);
}

}  // namespace scansteps::pixels
