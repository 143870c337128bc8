// Images of floats as PFM files.
#pragma once

#include <string>

#include "image.h"

namespace scansteps::simulate {

/// A map of floats as PFM: little-endian, rows from bottom to top.
void writePfm(const std::string& name, const Image& image);

/// Reads a little-endian PFM file of one or three channels, of at most 64 MiB. Throws a C string that names
/// the file and the reason.
Image readPfm(const std::string& name);

}  // namespace scansteps::simulate
