// Frames of a camera to YUYV16 samples, whatever they come as.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "io/frame_queue.h"

namespace scansteps {

/// Writes camera frames as width × height YUYV16 samples. Uncompressed frames are copied; motion-JPEG frames
/// go through the library's own decoder, and what it says is printed. A compressed frame that cannot be
/// decoded shows the picture before it, a damaged one as far as it came.
class FrameConverter
{
  public:
    void open(const CaptureFormat& format);
    /// `yuyv` holds width × height samples.
    void convert(std::span<const std::byte> frame, std::span<std::uint16_t> yuyv);

  private:
    CaptureFormat format_;
    std::vector<std::uint8_t> planes_;  ///< luma, Cb, Cr of the last picture, the chroma halved both ways
};

}  // namespace scansteps
