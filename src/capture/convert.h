// Converts camera frames of every supported format to YUYV16 samples.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "capture/frame_queue.h"

namespace scansteps::capture {

/// Writes camera frames as width × height YUYV16 samples. Uncompressed frames are copied; motion-JPEG frames
/// are decoded by the library's own decoder, whose messages are printed. For a frame that cannot be decoded
/// the previous picture is repeated (grey before the first), for a damaged one the part after the damage.
class FrameConverter
{
  public:
    void open(const CaptureFormat& format);
    /// `yuyv` holds width × height samples. Returns why the frame is incomplete; empty for a complete frame.
    std::string convert(std::span<const std::byte> frame, std::span<std::uint16_t> yuyv);

  private:
    std::string decode(std::span<const std::uint8_t> file);

    CaptureFormat format_;
    std::vector<std::uint8_t> luma_, cb_, cr_;  ///< the last picture, 4:2:0
};

}  // namespace scansteps::capture
