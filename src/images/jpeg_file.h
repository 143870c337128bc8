// JPEG files through the system's JPEG library, behind image_file.h: its fatal errors, which jump out of the
// library's C code, end here as a failed call. The model export writes its texture pages with it too.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "core/atomic_file.h"
#include "images/image_file.h"

namespace scansteps::images {

/// Decodes a JPEG file to RGB; `reason` then tells what is missing of it, if anything is. Refuses, with the
/// reason, an image of more than `maxBytes` bytes of pixels before memory is taken for it, and one with more
/// scans than photographs ever have.
std::optional<RgbImage> readJpeg(std::span<const std::uint8_t> file, std::uint64_t maxBytes, Array memory,
                                 std::string& reason);

/// Encodes rows of RGB pixels as baseline JPEG. Returns the library's message after a fatal error, else
/// nothing; throws what `file` and `source` throw.
std::string writeJpeg(AtomicFile& file, int quality, int width, int height, RowSource& source);

}  // namespace scansteps::images
