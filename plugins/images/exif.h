// The orientation in an EXIF block.
#pragma once

#include <cstdint>
#include <span>

namespace scansteps::imageio {

/// The orientation code, 1 to 8, of an EXIF block (a TIFF header and its directories, optionally after
/// "Exif\0\0"); 1 for a block without it, and for a damaged one.
int exifOrientation(std::span<const std::uint8_t> block);

}  // namespace scansteps::imageio
