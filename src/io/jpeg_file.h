// JPEG files through the system's JPEG library, behind image_file.h: its fatal errors, which jump out of the
// library's C code, end here as a printed message and a failed call. The
// model export writes its texture pages with it too.
#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>
#include <span>

#include "io/image_file.h"

namespace scansteps {

/// Decodes a JPEG stream to RGB. Refuses, with a line on standard error, an image of more than `maxBytes`
/// bytes of pixels before memory is taken for it, and one with more scans than photographs ever have.
std::optional<RgbImage> readJpeg(std::FILE* file, std::uint64_t maxBytes);

/// Encodes rows of RGB or grey pixels (grey is written as RGB with equal samples) as baseline JPEG. `pixels`
/// holds width × height × 3 or × 1 bytes. Returns false after a fatal error, whose message was printed.
bool writeJpeg(std::FILE* file, int quality, int width, int height, bool isRgb,
               std::span<const std::uint8_t> pixels);

}  // namespace scansteps
