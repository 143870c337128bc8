// Conversion of 16-bit samples to 8-bit grey values.
#include "grey/grey_from_frame.h"

#include <algorithm>

#include "core/sample_values.h"
#include "scansteps/error.h"

namespace scansteps::grey {
namespace {

std::size_t sizedFor(std::span<const std::uint16_t> frame, int width, int height, GreyImage& out)
{
    out.reshape(std::max(width, 0), std::max(height, 0));
    if (frame.size() < out.samples.size()) fail("frame smaller than its size says");
    return out.samples.size();
}

int valueOf(std::uint16_t sample, SampleCoding coding)
{
    return coding == SampleCoding::Yuyv16 ? sample & 255 : sample - kOffset16Zero;
}

}  // namespace

void greyFromFrame(std::span<const std::uint16_t> frame, int width, int height, SampleCoding coding,
                   GreyImage& out)
{
    const std::size_t count = sizedFor(frame, width, height, out);
    const std::uint16_t* from = frame.data();
    std::uint8_t* to = out.samples.data();
    if (coding == SampleCoding::Yuyv16)
        for (std::size_t i = 0; i < count; ++i) to[i] = std::uint8_t(from[i] & 255);
    else
        for (std::size_t i = 0; i < count; ++i)
            to[i] = std::uint8_t(std::clamp(from[i] - kOffset16Zero, 0, 255));
}

void stretchedGreyFromFrame(std::span<const std::uint16_t> frame, int width, int height, SampleCoding coding,
                            GreyImage& out)
{
    const std::size_t count = sizedFor(frame, width, height, out);
    int low = 65536;
    int high = -65536;
    for (std::size_t i = 0; i < count; ++i) {
        low = std::min(low, valueOf(frame[i], coding));
        high = std::max(high, valueOf(frame[i], coding));
    }
    const float factor = high > low ? 255.0F / float(high - low) : 0.0F;
    for (std::size_t i = 0; i < count; ++i)
        out.samples[i] = std::uint8_t(float(valueOf(frame[i], coding) - low) * factor + 0.5F);
}

}  // namespace scansteps::grey
