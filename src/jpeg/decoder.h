// The library's own decoder of baseline JPEG images held in memory, for frames that must end up as separate
// luma and chroma planes. Camera frames need no more than this subset of JPEG; all else is refused.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "jpeg/decode_error.h"
#include "jpeg/header.h"

namespace scansteps::jpeg {

/// Size of a decoded plane in samples; its rows follow each other without padding.
struct JpegPlaneSize
{
    int width = 0;
    int height = 0;
    std::size_t samples() const { return std::size_t(width) * std::size_t(height); }
    bool operator==(const JpegPlaneSize&) const = default;
};

/// How the chroma planes are delivered.
enum class JpegLayout
{
    kYuv420,  ///< half the width and height of the image, rounded up; finer chroma is averaged
    kNative,  ///< as the file samples them
};

/// Decodes one 8-bit sequential Huffman-coded YCbCr image (ITU-T T.81) per object: one interleaved scan,
/// luma sampled 1×1, 2×1, 1×2 or 2×2, chroma 1×1. Width and height are 1 to 4096 and a multiple of 16 in each
/// direction in which luma is sampled twice; in the others any size does. Missing Huffman tables are the
/// standard ones, as motion-JPEG frames leave them out.
///
/// Nothing is printed and nothing thrown but std::bad_alloc: a function that returns non-zero has left its
/// reason in getErrorString(). No input makes it touch memory outside the buffer and the planes; beside them
/// it needs about 70 KB.
class BaselineJpegDecoder
{
  public:
    /// Reads all markers up to the start of the scan. 0, or -1 on error. The buffer must live until decode().
    int parseHeader(std::span<const std::uint8_t> file);

    /// Size of the parsed image in pixels.
    void getSize(int& width, int& height) const;

    /// Size of plane `index` (0 luma, 1 Cb, 2 Cr) in `layout`.
    JpegPlaneSize planeSize(int index, JpegLayout layout) const;

    /// Where decode() puts luma, Cb and Cr: each at least planeSize().samples() long.
    void setComponents(const std::array<std::span<std::uint8_t>, 3>& planes) { planes_ = planes; }

    /// Decodes the scan into the planes. 0, or -1 on error; the planes then hold what came before the damage.
    /// Samples are those of the accurate integer inverse DCT of libjpeg, bit for bit.
    int decode(JpegLayout layout = JpegLayout::kYuv420);

    /// The last error message, empty before the first.
    const char* getErrorString() const { return error_.text(); }

  private:
    std::span<const std::uint8_t> file_;
    JpegHeader header_;
    bool parsed_ = false;
    std::array<std::span<std::uint8_t>, 3> planes_;
    JpegErrorText error_;
};

}  // namespace scansteps::jpeg
