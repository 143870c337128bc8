// What the 16-bit samples of a frame mean; the initialise record says it.
#pragma once

namespace scansteps::grey {

/// Offset 16-bit numbers (sample - 32768), or YUYV16 (luma = sample & 255).
enum class SampleCoding
{
    Offset16,
    Yuyv16
};

/// YUYV16 where the initialise record has "VideoFormat", whatever its value, offset samples elsewhere.
/// A template, so that kernels which use the enumeration need not know of records.
template <class Settings>
SampleCoding sampleCoding(const Settings& settings)
{
    return settings.has("VideoFormat") ? SampleCoding::Yuyv16 : SampleCoding::Offset16;
}

}  // namespace scansteps::grey
