// Conversion of frames for image files.
#include "frame_samples.h"

#include <scansteps/yuyv.h>

#include <algorithm>

namespace scansteps::imageio {
namespace {

std::span<const std::uint8_t> bytesOf(std::span<const std::uint16_t> samples)
{
    return {reinterpret_cast<const std::uint8_t*>(samples.data()), samples.size_bytes()};
}

}  // namespace

void widen(std::span<const std::uint8_t> from, std::span<std::uint16_t> to)
{
    for (std::size_t i = 0; i < from.size(); ++i) to[i] = static_cast<std::uint16_t>(from[i] * 257);
}

void narrow(std::span<const std::uint16_t> from, std::span<std::uint8_t> to)
{
    for (std::size_t i = 0; i < from.size(); ++i)
        to[i] = static_cast<std::uint8_t>(std::clamp(from[i] - 32768, 0, 255));
}

Samples FrameSamples::ofRgb(std::span<const std::uint8_t> rgb, int width, int height, int bits)
{
    if (bits == 8) return {width, height, 3, 8, rgb};
    wide_.resize(rgb.size());
    widen(rgb, wide_);
    return {width, height, 3, 16, bytesOf(wide_)};
}

Samples FrameSamples::ofOffset16(std::span<const std::uint16_t> samples, int width, int height, int bits)
{
    if (bits == 16) return {width, height, 1, 16, bytesOf(samples)};
    narrow_.resize(samples.size());
    narrow(samples, narrow_);
    return {width, height, 1, 8, narrow_};
}

Samples FrameSamples::ofYuyv16(std::span<const std::uint16_t> samples, int width, int height, int bits)
{
    rgb_.resize(3 * samples.size());
    yuyv16ToRgb(samples, rgb_, static_cast<std::size_t>(width), static_cast<std::size_t>(height));
    return ofRgb(rgb_, width, height, bits);
}

}  // namespace scansteps::imageio
