// The library's own decoder of baseline JPEG images in memory, for frames that are needed as separate luma
// and chroma planes. It supports the subset of JPEG that camera frames use and rejects everything else.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "jpeg/decode_error.h"
#include "jpeg/header.h"

namespace scansteps::jpeg {

/// Size of a decoded plane in samples; rows are contiguous.
struct JpegPlaneSize
{
    int width = 0;
    int height = 0;
    std::size_t samples() const { return std::size_t(width) * std::size_t(height); }
    bool operator==(const JpegPlaneSize&) const = default;
};

/// Resolution of the chroma planes.
enum class JpegLayout
{
    kYuv420,  ///< half the width and height of the image, rounded up; higher resolutions are averaged
    kNative,  ///< as in the file
};

/// Decodes one 8-bit sequential Huffman-coded YCbCr image (ITU-T T.81) per object: one interleaved scan, luma
/// sampling factors 1×1, 2×1, 1×2 or 2×2, chroma 1×1. Width and height are 1 to 4096, and multiples of 16 in
/// each direction with luma sampling factor 2. Missing Huffman tables default to the standard ones, which
/// motion-JPEG frames omit.
///
/// Prints nothing and throws only std::bad_alloc: when a function returns non-zero, getErrorString() has the
/// reason. For no input is memory outside the buffer and the planes accessed. Uses about 70 KB besides them.
class BaselineJpegDecoder
{
  public:
    /// Reads all markers up to the start of the scan. Returns 0, or -1 on error. The buffer must outlive
    /// decode().
    int parseHeader(std::span<const std::uint8_t> file);

    /// Size of the parsed image in pixels.
    void getSize(int& width, int& height) const;

    /// Size of plane `index` (0 luma, 1 Cb, 2 Cr) in `layout`.
    JpegPlaneSize planeSize(int index, JpegLayout layout) const;

    /// Sets the planes for luma, Cb and Cr, each at least planeSize().samples() long.
    void setComponents(const std::array<std::span<std::uint8_t>, 3>& planes) { planes_ = planes; }

    /// Decodes the scan into the planes. Returns 0, or -1 on error; the planes then hold everything before
    /// the damage. Samples equal those of the accurate integer inverse DCT of libjpeg bit for bit.
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
