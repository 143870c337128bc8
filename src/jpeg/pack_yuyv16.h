// Packs separate luma and chroma planes into YUYV16 samples, the 16-bit form of frames in the chain.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace scansteps::jpeg {

/// `dst` receives width × height samples: luma in the low byte, chroma in the high byte, `evenChroma` in even
/// columns and `oddChroma` in odd ones, each taken from row y / 2 and column x / 2 of its plane. Luma holds
/// width × height samples, the chroma planes half of both, rounded up; rows are contiguous. Throws when a
/// buffer is too small.
void packYuyv16(std::span<const std::uint8_t> luma, std::span<const std::uint8_t> evenChroma,
                std::span<const std::uint8_t> oddChroma, std::span<std::uint16_t> dst, std::size_t width,
                std::size_t height);

namespace scalar {
void packYuyv16(std::span<const std::uint8_t> luma, std::span<const std::uint8_t> evenChroma,
                std::span<const std::uint8_t> oddChroma, std::span<std::uint16_t> dst, std::size_t width,
                std::size_t height);
}  // namespace scalar

}  // namespace scansteps::jpeg
