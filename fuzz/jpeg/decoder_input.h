// What the fuzz target of the JPEG decoder does with its input, shared with the test that replays the corpus:
// header and scan, both layouts, into planes of exactly the size that the decoder asks for.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>
#include <vector>

#include "jpeg/decoder.h"

namespace scansteps::fuzzing {

/// Aborts unless every failure comes with a message and every success without one.
inline void decodeJpeg(const std::uint8_t* data, std::size_t size)
{
    const auto decoder = std::make_unique<jpeg::BaselineJpegDecoder>();
    if (decoder->parseHeader({data, size}) != 0) {
        if (decoder->getErrorString()[0] == '\0') std::abort();
        return;
    }
    int width = 0;
    int height = 0;
    decoder->getSize(width, height);
    if (width < 1 || width > 4096 || height < 1 || height > 4096) std::abort();
    if (std::size_t(width) * std::size_t(height) > (std::size_t{1} << 20U)) return;  // only slow
    for (const auto layout : {jpeg::JpegLayout::kYuv420, jpeg::JpegLayout::kNative}) {
        std::array<std::vector<std::uint8_t>, 3> planes;
        std::array<std::span<std::uint8_t>, 3> spans;
        for (std::size_t i = 0; i < 3; ++i) {
            planes[i].resize(decoder->planeSize(int(i), layout).samples());
            spans[i] = planes[i];
        }
        decoder->setComponents(spans);
        if ((decoder->decode(layout) != 0) != (decoder->getErrorString()[0] != '\0')) std::abort();
    }
}

}  // namespace scansteps::fuzzing
