// Combines frames of the same size into one wide frame.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace scansteps::pixels {

/// Row y of `out` becomes row y of frames[0], then of frames[1], and so on. Each frame holds width x height
/// samples, `out` frames.size() x width x height. Never throws.
void sideBySide(std::span<const std::span<const std::uint16_t>> frames, std::size_t width, std::size_t height,
                std::span<std::uint16_t> out);

}  // namespace scansteps::pixels
