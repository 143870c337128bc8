// YUYV16 frames as colours, for hosts and plug-ins that show or save them.
#pragma once

#include "scansteps/cpp20.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace scansteps {

/// YUYV16 to 8-bit RGB. A sample holds the luma Y in its low byte; Cb (U) and Cr (V) alternate by column in
/// the high byte. R = L + 1.596 (V - 128), G = L + 0.391 (128 - U) + 0.813 (128 - V), B = L + 2.018 (U - 128)
/// with L = 1.164 (Y - 16), in double precision, narrowed to single, clamped to 0..255, truncated (ITU-R
/// BT.601, studio range). `src` holds width x height samples, `dst` three bytes per pixel. For column x, with
/// p = x rounded down to even, U and V are the high bytes of samples p and p + 1 counted from the row's
/// start; the last column of an odd width takes V from the first sample of the next row, and 128 (no colour)
/// in the last row. Throws when a buffer is too small.
void yuyv16ToRgb(std::span<const std::uint16_t> src, std::span<std::uint8_t> dst, std::size_t width,
                 std::size_t height);

/// The same for columns `first` to width - 1 of the row that begins at sample `row` of a frame of `frame`
/// samples. The buffers are not checked.
void yuyv16RowToRgb(std::span<const std::uint16_t> src, std::span<std::uint8_t> dst, std::size_t row,
                    std::size_t first, std::size_t width, std::size_t frame);

}  // namespace scansteps
