// Colour conversion between packed 4:2:2 luma/chroma frames (YUYV16: one 16-bit sample per pixel, luma in
// the low byte, Cb and Cr alternating by column in the high byte) and 8-bit RGB triples.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "scansteps/yuyv.h"

namespace scansteps::pixels {

/// The same as yuyv16ToRgb(), vectorised.
void yuyvToRgb(std::span<const std::uint16_t> src, std::span<std::uint8_t> dst, std::size_t width,
               std::size_t height);

/// RGB to YUYV16: Y = (1052 r + 2064 g + 401 b + 65536) >> 12; an even column carries
/// U = (-606 r - 1191 g + 1798 b + 524288) >> 12, an odd one V = (1798 r - 1507 g - 290 b + 524288) >> 12,
/// each computed from its own pixel only. `src` holds three bytes per pixel, `dst` width x height samples.
/// Throws when a buffer is too small.
void rgbToYuyv(std::span<const std::uint8_t> src, std::span<std::uint16_t> dst, std::size_t width,
               std::size_t height);

namespace scalar {
inline void yuyvToRgb(std::span<const std::uint16_t> src, std::span<std::uint8_t> dst, std::size_t width,
                      std::size_t height)
{
    yuyv16ToRgb(src, dst, width, height);
}
void rgbToYuyv(std::span<const std::uint8_t> src, std::span<std::uint16_t> dst, std::size_t width,
               std::size_t height);
}  // namespace scalar

}  // namespace scansteps::pixels
