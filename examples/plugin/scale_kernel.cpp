// See scale_kernel.h.
#include "scale_kernel.h"

#include <algorithm>

void multiplySamples(std::span<std::uint16_t> samples, float factor)
{
    for (std::uint16_t& sample : samples) {
        const float value = static_cast<float>(sample - 32768) * factor;
        sample = static_cast<std::uint16_t>(std::clamp(value, -32768.0F, 32767.0F) + 32768.0F);
    }
}
