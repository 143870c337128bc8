// Offset 16-bit samples: a signed value v is stored as v + 32768. Conversions to and from float planes.
#pragma once

#include <cstdint>
#include <span>

namespace scansteps::pixels {

/// Offset 16-bit samples of a float plane: trunc(min(v, 32767) + 32768), or 1 where v < -32767; the sum is
/// computed in double precision, so negative v are rounded toward minus infinity. NaN counts as 32767. `dst`
/// and `src` have the same length. Never throws.
void floatToOffset16(std::span<const float> src, std::span<std::uint16_t> dst);

/// The reverse: sample - 32768 as a float, exact. `dst` and `src` have the same length. Never throws.
void offset16ToFloat(std::span<const std::uint16_t> src, std::span<float> dst);

namespace scalar {
void floatToOffset16(std::span<const float> src, std::span<std::uint16_t> dst);
void offset16ToFloat(std::span<const std::uint16_t> src, std::span<float> dst);
}  // namespace scalar

}  // namespace scansteps::pixels
