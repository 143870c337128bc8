// Pictures as image files in memory. No step, record or handle here.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace scansteps::imageio {

enum class FileFormat
{
    Unknown,
    Png,
    Tiff,
    Jpeg,
    Pnm,  ///< PPM for colour, PGM for grey
};
/// By the ending of a file name, in upper or lower case: .png, .tif, .tiff, .jpg, .jpeg, .ppm, .pgm, .pnm.
FileFormat formatOf(std::string_view fileName);

/// Pixels to be written: rows from top to bottom without padding, 1 (grey) or 3 (RGB) samples a pixel.
struct Samples
{
    int width = 0, height = 0;
    int perPixel = 3;
    int bits = 8;  ///< 8, or 16 in the byte order of this machine
    std::span<const std::uint8_t> bytes;

    std::size_t rowBytes() const
    {
        return static_cast<std::size_t>(width) * static_cast<std::size_t>(perPixel * bits / 8);
    }
    const std::uint8_t* row(int y) const { return bytes.data() + rowBytes() * static_cast<std::size_t>(y); }
};

/// Lossless except for JPEG, which takes 8 bits a sample and a quality of 1 to 100. Throws std::runtime_error
/// with the library's message, and std::bad_alloc.
std::vector<std::uint8_t> encode(FileFormat format, const Samples& samples, int quality);

// The formats, for encode().
std::vector<std::uint8_t> encodePng(const Samples& samples);
std::vector<std::uint8_t> encodeTiff(const Samples& samples);
std::vector<std::uint8_t> encodeJpeg(const Samples& samples, int quality);
std::vector<std::uint8_t> encodePnm(const Samples& samples);

}  // namespace scansteps::imageio
