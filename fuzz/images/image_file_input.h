// What the fuzz target of the image loader does with its input, shared with the test that replays the corpus.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <string>

#include "images/image_file.h"

namespace scansteps::fuzzing {

/// Whatever the file's bytes are, the loader returns a whole image or none.
inline void loadImageFile(const std::string& path)
{
    const auto image = images::loadImage(path);
    if (!image) return;
    if (image->width < 1 || image->height < 1) std::abort();
    // Every byte must have been written: a checksum reads them all.
    std::uint32_t sum = 0;
    for (const std::uint8_t byte : image->bytes()) sum += byte;
    [[maybe_unused]] static volatile std::uint32_t kept;  // keeps the sum from being optimised away
    kept = sum;
}

}  // namespace scansteps::fuzzing
