// Still images in files: one loader (binary PPM and PGM, or JPEG, told apart by content) and one writer
// (JPEG or PPM, told apart by the name). Files are hostile input: no size is believed before it was checked.
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

/// An 8-bit RGB image: `height` rows top to bottom × `width` columns × 3 bytes R, G, B, without padding.
struct RgbImage
{
    int width = 0;   ///< at least 1
    int height = 0;  ///< at least 1
    Array pixels;    ///< as a frame has them: 3 x width unsigned chars a row

    std::size_t size() const
    {
        return static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3;
    }
    std::span<const std::uint8_t> bytes() const { return pixels.elements<std::uint8_t>(); }
    /// Room for the pixels, in `memory` where that has just their size; returns it.
    std::uint8_t* takeRoom(Array&& memory)
    {
        pixels = std::move(memory);
        pixels.reshape(Kind::Uchar, static_cast<std::uint32_t>(width) * 3,
                       static_cast<std::uint32_t>(height));
        return pixels.elements<std::uint8_t>().data();
    }
};

/// Pixels of a JPEG file are decoded only up to this many bytes, or this many a byte of the file where that
/// is more: 16 megapixels from any file, and beyond that the most that Huffman coding can express (an 8×8
/// grey block in one bit of a progressive file). A larger claim in the header is refused before memory is
/// taken.
inline constexpr std::uint64_t kJpegBytesAlways = std::uint64_t{48} << 20U;
inline constexpr std::uint64_t kJpegBytesPerFileByte = std::uint64_t{64} * 8 * 3;

/// What was wrong with a file.
struct ImageTrouble
{
    std::string reason;    ///< of a failure, or of missing parts of an image that was loaded; else empty
    bool missing = false;  ///< there is no such file
};

/// Loads a file or what comes through a pipe. One that begins with "P" and a number is read as PPM or PGM
/// with one byte a sample ("P6" three samples a pixel, any other number one), its samples scaled by 255 /
/// maxval, truncated; everything else is decoded as JPEG (ITU-T T.81) of up to 1 GiB, a damaged one as far as
/// it goes, one in four inks as they look on white paper. Nothing is returned for a file that cannot be
/// opened
/// ("image file not found") or read, has sizes or a maxval below 1, is shorter than its header says, claims
/// more than the limits above, or is broken. The reason is printed on standard error, and left in `trouble`.
/// Never throws for a bad file; std::bad_alloc where memory is really short. `memory` of an image of the same
/// size is used again.
std::optional<RgbImage> loadImage(const std::string& path, Array memory = {},
                                  ImageTrouble* trouble = nullptr);

/// Rows of an RGB picture for a writer that takes some at a time, so that they are made while they stay in a
/// cache.
class RowSource
{
  public:
    virtual ~RowSource() = default;
    /// Rows first ... first + count - 1 without gaps, from the top on; valid until the next call.
    virtual const std::uint8_t* rows(int first, int count) = 0;
};
/// Rows that are asked for at once, except at the end.
inline constexpr int kRowsAtOnce = 16;

/// A picture that is there, RGB or grey, which becomes RGB with equal samples. `pixels` holds all of it.
class PictureRows final : public RowSource
{
  public:
    PictureRows(std::span<const std::uint8_t> pixels, int width, bool isRgb);
    const std::uint8_t* rows(int first, int count) override;

  private:
    std::span<const std::uint8_t> pixels_;
    std::size_t width_;
    std::vector<std::uint8_t> spread_;  // rows of a grey picture as RGB
};

/// Writes a file whose kind is told by the first of these texts that its name holds anywhere: ".jpg",
/// ".jpeg", ".JPG", ".JPEG" (JPEG of `quality` 0 to 100, baseline) or ".ppm", ".PPM" (binary PPM, RGB only).
/// The file appears complete or, when anything fails, not at all. Returns nothing when it was written, else
/// the reason, printed on standard error where opening ("can't open NAME") or writing ("can't write NAME:
/// ...") failed. `source` is not asked where no file can be.
std::string writeImage(const std::string& path, int quality, int width, int height, RowSource& source);
/// The same for pixels that are there: rows top to bottom of 3 bytes a pixel, or of 1 byte where `isRgb` is
/// false, which becomes grey, in JPEG files only. False when nothing was written, also for too few pixels.
bool writeImage(const std::string& path, int quality, int width, int height, bool isRgb,
                std::span<const std::uint8_t> pixels);

}  // namespace scansteps::images
