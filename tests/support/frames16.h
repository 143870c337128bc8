// 16-bit input frames for steps, made from 8-bit grey pictures or by counting.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "scansteps/array.h"
#include "scansteps/record.h"

namespace scansteps::test {

/// Offset 16-bit frame: sample + 32768.
inline Array offsetFrame(std::span<const std::uint8_t> grey, int width)
{
    Array frame(Kind::Ushort, std::uint32_t(width), std::uint32_t(grey.size() / std::size_t(width)));
    const auto to = frame.elements<std::uint16_t>();
    for (std::size_t i = 0; i < to.size(); ++i) to[i] = std::uint16_t(grey[i] + 32768);
    return frame;
}

/// YUYV16 frame of that luma, with arbitrary chroma.
inline Array videoFrame(std::span<const std::uint8_t> grey, int width)
{
    Array frame = offsetFrame(grey, width);
    for (auto& v : frame.elements<std::uint16_t>()) v = std::uint16_t((v & 255) | (v % 7 << 13));
    return frame;
}

/// 16-bit frame whose samples count up from `first`.
inline Array countingFrame(std::uint32_t width, std::uint32_t height, int first)
{
    Array frame(Kind::Ushort, width, height);
    for (auto& sample : frame.elements<std::uint16_t>()) sample = std::uint16_t(first++);
    return frame;
}

inline std::vector<std::uint16_t> samplesOf(const Array& frame)
{
    const auto samples = frame.elements<std::uint16_t>();
    return {samples.begin(), samples.end()};
}

/// The settings that every step on frames reads.
inline Struct geometryOf(int width, int height, Struct more = {})
{
    more.set("dataX", width);
    more.set("dataY", height);
    more.set("dataFormat", "CPU::u_1x16");
    return more;
}

}  // namespace scansteps::test
