// Grey levels and colours of frames, of all the formats that steps of this plug-in take.
#pragma once

#include <scansteps/array.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace scansteps::scan {

enum class FrameCoding
{
    Rgb8,
    Offset16,  ///< 32768 + grey level
    Yuyv16,    ///< the grey level is the low byte
};

/// Grey levels times 4 of each pixel, at most 32764: R + 2 G + B, or those of 16-bit samples. The array holds
/// `out.size()` pixels of the coding.
void levelsOf(const Array& frame, FrameCoding coding, std::span<std::int16_t> out);

/// Red, green and blue (0 to 255) of the given pixels; grey for 16-bit samples.
std::vector<float> coloursOf(const Array& frame, FrameCoding coding, std::span<const std::size_t> pixels);

}  // namespace scansteps::scan
