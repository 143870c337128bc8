// A view of an 8-bit grey image, and an image that owns its samples.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace scansteps::grey {

/// Rows of `width` bytes, `stride` bytes apart.
struct GreyView
{
    const std::uint8_t* data = nullptr;
    int width = 0;
    int height = 0;
    std::ptrdiff_t stride = 0;

    const std::uint8_t* row(int y) const { return data + y * stride; }
};

/// An image without gaps between its rows. Reshaping leaves the samples unspecified and reuses the memory
/// when it can.
struct GreyImage
{
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> samples;

    void reshape(int newWidth, int newHeight)
    {
        width = newWidth;
        height = newHeight;
        samples.resize(std::size_t(newWidth) * std::size_t(newHeight));
    }
    std::uint8_t* row(int y) { return samples.data() + std::ptrdiff_t{y} * width; }
    GreyView view() const { return {samples.data(), width, height, width}; }
};

}  // namespace scansteps::grey
