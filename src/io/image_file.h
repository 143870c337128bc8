// Still images in files: one loader (binary PPM and PGM, or JPEG, told apart by content) and one writer
// (JPEG or PPM, told apart by the name). Files are hostile input: no size is believed before it was checked.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace scansteps {

/// An 8-bit RGB image: `height` rows top to bottom × `width` columns × 3 bytes R, G, B, without padding.
struct RgbImage
{
    int width = 0;   ///< at least 1
    int height = 0;  ///< at least 1
    std::unique_ptr<std::uint8_t[]> pixels;

    std::size_t size() const
    {
        return static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3;
    }
    std::span<const std::uint8_t> bytes() const { return {pixels.get(), size()}; }
};

/// Pixels of a JPEG file are decoded only up to this many bytes, or this many a byte of the file where that
/// is more: 16 megapixels from any file, and beyond that the most that Huffman coding can express (an 8×8
/// grey block in one bit of a progressive file). A larger claim in the header is refused before memory is
/// taken.
inline constexpr std::uint64_t kJpegBytesAlways = std::uint64_t{48} << 20U;
inline constexpr std::uint64_t kJpegBytesPerFileByte = std::uint64_t{64} * 8 * 3;

/// Loads a file. One that begins with "P" and a number is read as PPM or PGM with one byte a sample ("P6"
/// three samples a pixel, any other number one), its samples scaled by 255 / maxval, truncated; everything
/// else is decoded as JPEG (ITU-T T.81), a truncated one as far as it goes with the library's warning.
/// Nothing is returned, and the reason printed, for a file that cannot be opened ("image file not found"),
/// has sizes or a maxval below 1, is shorter than its header says, claims more than the limits above, or is
/// broken. Never throws for a bad file; std::bad_alloc where memory is really short.
std::optional<RgbImage> loadImage(const std::string& path);

/// The same from an open stream in binary mode that can seek, from its current position. The stream stays
/// open.
std::optional<RgbImage> loadImage(std::FILE* file);

/// Writes a file whose kind is told by the first of these texts that its name holds anywhere: ".jpg",
/// ".jpeg",
/// ".JPG", ".JPEG" (JPEG of `quality` 0 to 100, baseline) or ".ppm", ".PPM" (binary PPM, RGB only). `pixels`
/// are rows top to bottom of 3 bytes a pixel, or of 1 byte where `isRgb` is false, which is written as grey.
/// Returns false, and has written nothing, for any other name, grey to PPM, sizes below 1, too few pixels, or
/// a file that cannot be opened ("can't open NAME" on standard error); false also when writing fails midway.
bool writeImage(const std::string& path, int quality, int width, int height, bool isRgb,
                std::span<const std::uint8_t> pixels);

}  // namespace scansteps
