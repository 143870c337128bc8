// Binary PPM and PGM files; used by image_file.
#pragma once

#include <optional>
#include <string>

#include "images/image_file.h"
#include "images/input_file.h"

namespace scansteps::images {

/// The number after the "P" of a PPM file.
std::optional<int> readPpmMagic(InputFile& file);

/// Reads the rest of the file after the magic number. On failure, sets `reason` and returns nothing.
std::optional<RgbImage> readPpm(InputFile& file, int magic, Array memory, std::string& reason);

}  // namespace scansteps::images
