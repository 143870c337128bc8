// Frames of a camera to YUYV16 samples, whatever they come as.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "capture/frame_queue.h"

namespace scansteps::capture {

/// Writes camera frames as width × height YUYV16 samples. Uncompressed frames are copied; motion-JPEG frames
/// go through the library's own decoder, and what it says is printed. A compressed frame that cannot be
/// decoded shows the picture before it (grey before the first), a damaged one as far as it came.
class FrameConverter
{
  public:
    void open(const CaptureFormat& format);
    /// `yuyv` holds width × height samples. Returns why the frame is incomplete, nothing when it is whole.
    std::string convert(std::span<const std::byte> frame, std::span<std::uint16_t> yuyv);

  private:
    std::string decode(std::span<const std::uint8_t> file);

    CaptureFormat format_;
    std::vector<std::uint8_t> luma_, cb_, cr_;  ///< the last picture, its chroma halved both ways
};

}  // namespace scansteps::capture
