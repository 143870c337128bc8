// Binary PPM and PGM files, behind image_file.h.
#pragma once

#include <optional>
#include <string>

#include "images/image_file.h"
#include "images/input_file.h"

namespace scansteps::images {

/// The number that stands after the "P" of a PPM file.
std::optional<int> readPpmMagic(InputFile& file);

/// Reads what follows the magic number. Nothing, with the reason, for a file that cannot be taken.
std::optional<RgbImage> readPpm(InputFile& file, int magic, Array memory, std::string& reason);

}  // namespace scansteps::images
