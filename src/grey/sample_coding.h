// The coding of 16-bit samples, which the initialise record declares.
#pragma once

namespace scansteps::grey {

/// Offset 16-bit numbers (sample - 32768), or YUYV16 (luma = sample & 255).
enum class SampleCoding
{
    Offset16,
    Yuyv16
};

/// YUYV16 when the initialise record has "VideoFormat", whatever its value, otherwise offset samples. A
/// template, so that kernels can use the enumeration without depending on records.
template <class Settings>
SampleCoding sampleCoding(const Settings& settings)
{
    return settings.has("VideoFormat") ? SampleCoding::Yuyv16 : SampleCoding::Offset16;
}

}  // namespace scansteps::grey
