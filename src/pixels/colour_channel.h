// One channel of colour frames, their luma or a mixture of channels, as offset 16-bit samples.
#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace scansteps::pixels {

enum class Channel
{
    red = 0,
    green = 1,
    blue = 2,
    luma = 3,     ///< ITU-R BT.601: 0.299 R + 0.587 G + 0.114 B, rounded
    mixture = 4,  ///< sum with the caller's weights, rounded
};

/// `src` holds three bytes for every sample of `dst`; converts min(src / 3, dst) pixels to value + 32768.
/// Mixtures are clamped to -32768 ... 32767; NaN counts as 0. Never throws.
void channelOfRgb(std::span<const std::uint8_t> src, std::span<std::uint16_t> dst, Channel channel,
                  const std::array<float, 3>& weights = {});

/// Luma of YUYV16 samples: their low byte, + 32768.
void lumaOfYuyv(std::span<const std::uint16_t> src, std::span<std::uint16_t> dst);

namespace scalar {
void channelOfRgb(std::span<const std::uint8_t> src, std::span<std::uint16_t> dst, Channel channel,
                  const std::array<float, 3>& weights = {});
void lumaOfYuyv(std::span<const std::uint16_t> src, std::span<std::uint16_t> dst);
}  // namespace scalar

}  // namespace scansteps::pixels
