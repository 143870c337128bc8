// Special values of offset 16-bit samples, which store a signed value v as v + 32768.
#pragma once

#include <cstdint>

namespace scansteps {

/// The value 0: background of edge frames and label frames.
inline constexpr std::uint16_t kOffset16Zero = 32768;
/// The value 255: white, and the pixels of edges.
inline constexpr std::uint16_t kOffset16White = kOffset16Zero + 255;

}  // namespace scansteps
