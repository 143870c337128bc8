#include "io/capture_convert.h"

#include <algorithm>
#include <cstring>

#include "scansteps/error.h"

namespace scansteps {

void FrameConverter::open(const CaptureFormat& format)
{
    if (format.jpeg) fail("capture: motion JPEG is not available yet");
    format_ = format;
}

void FrameConverter::convert(std::span<const std::byte> frame, std::span<std::uint16_t> yuyv)
{
    const std::size_t bytes = std::min(frame.size(), yuyv.size_bytes());
    if (bytes != 0) std::memcpy(yuyv.data(), frame.data(), bytes);
}

}  // namespace scansteps
