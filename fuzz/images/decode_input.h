// What the fuzz target of the image plug-in's decoders does with its input, shared with the test that replays
// the corpus.
#pragma once

#include <cstdint>
#include <cstdlib>

#include "plugins/images/decode.h"

namespace scansteps::fuzzing {

/// Whatever the bytes are, they give pictures or DecodeError.
inline void decodePictures(const std::uint8_t* data, std::size_t size)
try {
    const auto pictures = imageio::openPictures({data, size});
    std::uint32_t sum = 0;
    for (int page = 0; page < 4 && pictures->more(); ++page) {
        imageio::Picture picture = pictures->next({});
        imageio::upright(picture);
        if (picture.width() < 1 || picture.height() < 1) std::abort();
        // Every byte must have been written: a checksum reads them all.
        for (const std::byte byte : picture.pixels.bytes()) sum += static_cast<std::uint32_t>(byte);
    }
    [[maybe_unused]] static volatile std::uint32_t kept;  // keeps the sum from being optimised away
    kept = sum;
} catch (const imageio::DecodeError&) {
}

}  // namespace scansteps::fuzzing
