// Conversion of frames to grey levels and colours.
#include "frame_levels.h"

#include <algorithm>

namespace scansteps::scan {
namespace {

int levelOf(std::uint16_t sample, FrameCoding coding)
{
    return coding == FrameCoding::Yuyv16 ? sample & 255 : std::clamp(sample - 32768, 0, 8191);
}

}  // namespace

void levelsOf(const Array& frame, FrameCoding coding, std::span<std::int16_t> out)
{
    if (coding == FrameCoding::Rgb8) {
        const std::uint8_t* rgb = frame.elements<std::uint8_t>().data();
        for (std::size_t i = 0; i < out.size(); ++i)
            out[i] = static_cast<std::int16_t>(rgb[3 * i] + 2 * rgb[3 * i + 1] + rgb[3 * i + 2]);
        return;
    }
    const std::uint16_t* samples = frame.elements<std::uint16_t>().data();
    for (std::size_t i = 0; i < out.size(); ++i)
        out[i] = static_cast<std::int16_t>(4 * levelOf(samples[i], coding));
}

std::vector<float> coloursOf(const Array& frame, FrameCoding coding, std::span<const std::size_t> pixels)
{
    std::vector<float> colours(3 * pixels.size());
    const auto rgb = frame.elements<std::uint8_t>();
    const auto samples = frame.elements<std::uint16_t>();
    for (std::size_t n = 0; n < pixels.size(); ++n)
        for (std::size_t channel = 0; channel < 3; ++channel)
            colours[3 * n + channel] = coding == FrameCoding::Rgb8
                                           ? float(rgb[3 * pixels[n] + channel])
                                           : float(std::min(levelOf(samples[pixels[n]], coding), 255));
    return colours;
}

}  // namespace scansteps::scan
