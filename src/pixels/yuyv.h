// Colour conversion between packed 4:2:2 luma/chroma frames (YUYV16: one 16-bit sample per pixel, luma in
// the low byte, Cb and Cr alternating by column in the high byte) and 8-bit RGB triples.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace scansteps::pixels {

/// YUYV16 to RGB: R = L + 1.596 (V - 128), G = L + 0.391 (128 - U) + 0.813 (128 - V), B = L + 2.018 (U - 128)
/// with L = 1.164 (Y - 16), in double precision, narrowed to single, clamped to 0..255, truncated (ITU-R
/// BT.601, studio range). `src` holds width x height samples, `dst` three bytes per pixel. For column x, with
/// p = x rounded down to even, U and V are the high bytes of samples p and p + 1 counted from the row's
/// start; the last column of an odd width takes V from the first sample of the next row, and 128 (no colour)
/// in the last row. Throws when a buffer is too small.
void yuyvToRgb(std::span<const std::uint16_t> src, std::span<std::uint8_t> dst, std::size_t width,
               std::size_t height);

/// RGB to YUYV16: Y = (1052 r + 2064 g + 401 b + 65536) >> 12; an even column carries
/// U = (-606 r - 1191 g + 1798 b + 524288) >> 12, an odd one V = (1798 r - 1507 g - 290 b + 524288) >> 12,
/// each computed from its own pixel only. `src` holds three bytes per pixel, `dst` width x height samples.
/// Throws when a buffer is too small.
void rgbToYuyv(std::span<const std::uint8_t> src, std::span<std::uint16_t> dst, std::size_t width,
               std::size_t height);

namespace scalar {
void yuyvToRgb(std::span<const std::uint16_t> src, std::span<std::uint8_t> dst, std::size_t width,
               std::size_t height);
void rgbToYuyv(std::span<const std::uint8_t> src, std::span<std::uint16_t> dst, std::size_t width,
               std::size_t height);
}  // namespace scalar

}  // namespace scansteps::pixels
