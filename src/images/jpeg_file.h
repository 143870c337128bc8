// JPEG files through the system's JPEG library, used by image_file and by the model export for texture pages.
// The library's fatal errors become return values here.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "core/atomic_file.h"
#include "images/image_file.h"

namespace scansteps::images {

/// Decodes a JPEG file to RGB; `reason` names the first missing or damaged data, if any. Rejects, with the
/// reason, images of more than `maxBytes` bytes of pixels before memory is allocated, and images with an
/// excessive number of scans.
std::optional<RgbImage> readJpeg(std::span<const std::uint8_t> file, std::uint64_t maxBytes, Array memory,
                                 std::string& reason);

/// Encodes height rows of width RGB pixels as baseline JPEG. Returns the library's message after a fatal
/// error, otherwise an empty string. Exceptions from `file` propagate.
std::string writeJpeg(AtomicFile& file, int quality, int width, int height,
                      std::span<const std::uint8_t> rgb);

}  // namespace scansteps::images
