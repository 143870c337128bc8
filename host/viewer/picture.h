// Pictures of frames for the page: a region, reduced to the size that is shown, as JPEG; or its bytes as they
// are, as PNG. Also histograms and single values.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "shot.h"

namespace scansteps::viewer {

using Bytes = std::vector<std::uint8_t>;

struct Rect
{
    std::int64_t x = 0, y = 0, width = 0, height = 0;
};
/// The part of `wanted` inside the frame, widened to even columns; all of the frame when nothing is left.
Rect clipped(const Rect& wanted, const Layout& layout);

/// Values that are shown black and white.
using Window = std::pair<double, double>;
/// 0 to 255 for video and 8-bit frames and for others whose values lie within; else least and greatest value.
Window autoWindow(const Array& frame, const Layout& layout);

/// The region as JPEG of at most maxWidth × maxHeight pixels; it is never enlarged.
struct JpegPicture
{
    Bytes bytes;
    int width = 0, height = 0;
};
JpegPicture jpegOf(const Array& frame, const Layout& layout, const Rect& region, int maxWidth, int maxHeight,
                   const Window& window);
/// The bytes of the region's elements as an 8-bit grey PNG: pixelBytes() columns to a pixel. Nothing when the
/// region has more than kMaxExact pixels.
std::optional<Bytes> exactOf(const Array& frame, const Layout& layout, const Rect& region);
inline constexpr std::int64_t kMaxExact = std::int64_t{8} << 20;

struct Histogram
{
    double least = 0, greatest = 0;
    double low = 0, high = 0;                      ///< range of the bins
    std::vector<std::vector<std::uint32_t>> bins;  ///< one list, or three of an RGB frame
};
Histogram histogramOf(const Array& frame, const Layout& layout);

/// The values of a pixel as people read them: "Y 16, Cb 128"; "" outside the frame.
std::string valueText(const Array& frame, const Layout& layout, std::int64_t x, std::int64_t y);

/// `channels` (1 or 3) bytes a pixel as JPEG.
Bytes encodeJpeg(std::span<const std::uint8_t> pixels, int width, int height, int channels, int quality);

}  // namespace scansteps::viewer
