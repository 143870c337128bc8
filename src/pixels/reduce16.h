// Reduction of 16-bit frames by an integer factor in both directions: the mean of every block of samples.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace scansteps::pixels {

/// Offset 16-bit frame: the sum of (sample - 32768) over a factor x factor block, divided by the number of
/// samples with truncation toward zero, plus 32768. `src` holds width x height samples, `dst` (width /
/// factor) x (height / factor); leftover columns and rows are ignored. Sums take 32 bits for factors up to
/// 256 and 64 bits above. Throws when the factor is below 1 or a buffer is too small.
void reduceOffset16(std::span<const std::uint16_t> src, std::span<std::uint16_t> dst, std::size_t width,
                    std::size_t height, int factor);

/// YUYV16 frame: low byte of an output sample = mean low byte (luma) of the block, high byte = mean U in even
/// output columns, mean V in odd ones. Input sample k (counted through the frame) contributes U = high byte
/// of sample p and V = high byte of sample p + 1, where p is k rounded down to even. In frames of odd width,
/// pairs therefore cross row boundaries; when width x height is odd, the missing last V counts as 128 (no
/// colour). Sizes and errors as above.
void reduceYuyv16(std::span<const std::uint16_t> src, std::span<std::uint16_t> dst, std::size_t width,
                  std::size_t height, int factor);

namespace scalar {
void reduceOffset16(std::span<const std::uint16_t> src, std::span<std::uint16_t> dst, std::size_t width,
                    std::size_t height, int factor);
void reduceYuyv16(std::span<const std::uint16_t> src, std::span<std::uint16_t> dst, std::size_t width,
                  std::size_t height, int factor);
}  // namespace scalar

}  // namespace scansteps::pixels
