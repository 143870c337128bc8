// Still images in files: one loader (binary PPM and PGM, or JPEG, chosen by content) and one writer (JPEG or
// PPM, chosen by file name). Files are untrusted input: every size is checked before it is used.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "scansteps/array.h"

namespace scansteps::images {

/// An 8-bit RGB image: `height` rows from top to bottom × `width` columns × 3 bytes R, G, B, without padding.
struct RgbImage
{
    int width = 0;   ///< at least 1
    int height = 0;  ///< at least 1
    Array pixels;    ///< in the layout of a frame: 3 x width unsigned chars per row

    std::size_t size() const
    {
        return static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3;
    }
    std::span<const std::uint8_t> bytes() const { return pixels.elements<std::uint8_t>(); }
    /// Allocates `pixels`, reusing `memory` if it has exactly the right size; returns their address.
    std::uint8_t* takeRoom(Array&& memory)
    {
        pixels = std::move(memory);
        pixels.reshape(Kind::Uchar, static_cast<std::uint32_t>(width) * 3,
                       static_cast<std::uint32_t>(height));
        return pixels.elements<std::uint8_t>().data();
    }
};

/// Limits of the decoded size of a JPEG file, of which the larger one holds: a constant (16 megapixels), and
/// a multiple of the file size, the maximum that Huffman coding can express (an 8×8 grey block in one bit of
/// a progressive file). Headers that claim more are rejected before memory is allocated.
inline constexpr std::uint64_t kJpegBytesAlways = std::uint64_t{48} << 20U;
inline constexpr std::uint64_t kJpegBytesPerFileByte = std::uint64_t{64} * 8 * 3;

/// A problem with a file.
struct ImageTrouble
{
    std::string reason;    ///< why loading failed or the loaded image is incomplete; otherwise empty
    bool missing = false;  ///< the file does not exist
};

/// Loads an image from a file or pipe. Data that begins with "P" and a number is read as PPM or PGM with one
/// byte per sample ("P6" has three samples per pixel, any other number one), samples scaled by 255 / maxval,
/// truncated. Everything else is decoded as JPEG (ITU-T T.81) of up to 1 GiB: damaged files up to the damage,
/// CMYK as printed on white paper. Returns nothing for a file that cannot be opened ("image file not found")
/// or read, has dimensions or a maxval below 1, is shorter than its header says, exceeds the limits above, or
/// cannot be decoded; the reason is printed on standard error and stored in `trouble`. Never throws for a bad
/// file, only std::bad_alloc. `memory` of an image of the same size is reused.
std::optional<RgbImage> loadImage(const std::string& path, Array memory = {},
                                  ImageTrouble* trouble = nullptr);

/// Writes an image file in the format given by the first of these texts found anywhere in its name: ".jpg",
/// ".jpeg", ".JPG", ".JPEG" (baseline JPEG of `quality` 0 to 100) or ".ppm", ".PPM" (binary PPM, RGB only).
/// `pixels` are rows from top to bottom with 3 bytes R, G, B per pixel or, unless `isRgb`, 1 byte of grey
/// (JPEG files only), which is repeated as R, G and B. The file appears complete or, on failure, not at all.
/// Returns whether it was written; `reason` then receives why not, which is printed on standard error if
/// opening
/// ("can't open NAME") or writing ("can't write NAME: ...") failed.
bool writeImage(const std::string& path, int quality, int width, int height, bool isRgb,
                std::span<const std::uint8_t> pixels, std::string* reason = nullptr);

}  // namespace scansteps::images
