// JPEG files through the system's JPEG library, behind image_file.h: its fatal errors, which jump out of the
// library's C code, end here as a printed message and a failed call. The
// model export writes its texture pages with it too.
#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>
#include <span>

#include "framework/atomic_file.h"
#include "io/image_file.h"

namespace scansteps {

/// Decodes a JPEG stream to RGB. Refuses, with a line on standard error, an image of more than `maxBytes`
/// bytes of pixels before memory is taken for it, and one with more scans than photographs ever have.
std::optional<RgbImage> readJpeg(std::FILE* file, std::uint64_t maxBytes, Array memory = {});

/// Encodes rows of RGB pixels as baseline JPEG. Returns false after a fatal error, whose message was printed;
/// throws what `file` and `source` throw.
bool writeJpeg(AtomicFile& file, int quality, int width, int height, RowSource& source);

}  // namespace scansteps
