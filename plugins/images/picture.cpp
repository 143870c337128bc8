// Conversion of rows to frames, and the eight orientations.
#include "picture.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace scansteps::imageio {
namespace {

constexpr std::uint64_t kMaxSide = 65535, kMaxPixels = std::uint64_t{1} << 28U;

/// round(v / 257), which takes 0 ... 65535 to 0 ... 255.
std::uint8_t rounded(std::uint16_t v)
{
    return static_cast<std::uint8_t>((v + 128U) / 257U);
}
std::uint8_t rounded(std::uint8_t v)
{
    return v;
}

template <class T>
void putGrey(const T* from, std::uint16_t* to, std::size_t count, RowLayout layout)
{
    constexpr auto kWhite = static_cast<T>(~T{0});
    const T flip = layout.inverted ? kWhite : T{0};
    constexpr unsigned kZero = sizeof(T) == 1 ? 32768 : 0;
    for (std::size_t i = 0; i < count; ++i, from += layout.samples)
        to[i] = static_cast<std::uint16_t>(kZero + static_cast<unsigned>(*from ^ flip));
}

template <class T>
void putRgb(const T* from, std::uint8_t* to, std::size_t count, RowLayout layout)
{
    for (std::size_t i = 0; i < count; ++i, from += layout.samples, to += 3)
        for (std::size_t c = 0; c < 3; ++c) to[c] = rounded(from[c]);
}

// Without a colour profile: light = (1 - ink) × (1 - black).
template <class T>
void putCmyk(const T* from, std::uint8_t* to, std::size_t count, RowLayout layout)
{
    const unsigned flip = layout.inverted ? 0 : 255;
    for (std::size_t i = 0; i < count; ++i, from += layout.samples, to += 3) {
        const unsigned black = rounded(from[3]) ^ flip;
        for (std::size_t c = 0; c < 3; ++c)
            to[c] = static_cast<std::uint8_t>(((rounded(from[c]) ^ flip) * black + 127) / 255);
    }
}

template <class T>
void putAny(const void* row, std::byte* to, std::size_t count, RowLayout layout)
{
    const T* from = static_cast<const T*>(row);
    auto* const bytes = reinterpret_cast<std::uint8_t*>(to);
    if (layout.colours == 1)
        putGrey(from, reinterpret_cast<std::uint16_t*>(to), count, layout);
    else if (layout.colours == 4)
        putCmyk(from, bytes, count, layout);
    else if (sizeof(T) == 1 && layout.samples == 3)
        std::memcpy(bytes, row, 3 * count);
    else
        putRgb(from, bytes, count, layout);
}

// A pixel as one value, so that it is moved as such.
struct Rgb
{
    std::uint8_t r, g, b;
};

// Each row of the result comes from a row or, for codes from 5 on, a column of the picture.
template <class Pixel>
void turn(const Pixel* from, Pixel* to, std::ptrdiff_t width, std::ptrdiff_t height, int code)
{
    const bool transposed = code >= 5;
    const bool fromRight = code == 2 || code == 3 || code == 7 || code == 8;
    const bool fromBelow = code == 3 || code == 4 || code == 6 || code == 7;
    const std::ptrdiff_t across = fromRight ? -1 : 1, down = fromBelow ? -width : width;
    const Pixel* const corner = from + (fromRight ? width - 1 : 0) + (fromBelow ? (height - 1) * width : 0);
    const std::ptrdiff_t stepX = transposed ? down : across, stepY = transposed ? across : down;
    const std::ptrdiff_t outWidth = transposed ? height : width, outHeight = transposed ? width : height;
    // In blocks, as columns of large pictures would miss the cache with every pixel.
    constexpr std::ptrdiff_t kBlock = 32;
    for (std::ptrdiff_t y0 = 0; y0 < outHeight; y0 += kBlock)
        for (std::ptrdiff_t x0 = 0; x0 < outWidth; x0 += kBlock)
            for (std::ptrdiff_t y = y0; y < std::min(outHeight, y0 + kBlock); ++y)
                for (std::ptrdiff_t x = x0; x < std::min(outWidth, x0 + kBlock); ++x)
                    to[y * outWidth + x] = corner[y * stepY + x * stepX];
}

}  // namespace

void checkPictureSize(std::uint64_t width, std::uint64_t height, std::uint64_t fileBytes)
{
    const std::string size = std::to_string(width) + " x " + std::to_string(height) + " pixels";
    if (width == 0 || height == 0) throw DecodeError(size);
    if (width > kMaxSide || height > kMaxSide || width * height > kMaxPixels)
        throw DecodeError(size + " are more than a frame can have");
    if (width * height * 3 > std::max(kBytesAlways, fileBytes * kBytesPerFileByte))
        throw DecodeError(size + " exceed the limit for a file of this length");
}

PictureRows::PictureRows(RowLayout layout, std::uint64_t width, std::uint64_t height, std::uint64_t fileBytes,
                         Array memory)
    : layout_(layout), width_(static_cast<std::size_t>(width))
{
    checkPictureSize(width, height, fileBytes);
    const bool isGrey = layout.colours == 1;
    const auto columns = static_cast<std::uint32_t>(width), rows = static_cast<std::uint32_t>(height);
    pixels_ = std::move(memory);
    const std::size_t before = pixels_.byteSize();
    pixels_.reshape(isGrey ? Kind::Ushort : Kind::Uchar, isGrey ? columns : 3 * columns, rows);
    if (pixels_.byteSize() == before) pixels_.clear();  // rows that a damaged file lacks are 0
}

void PictureRows::put(std::size_t y, std::size_t x, std::size_t count, const void* row)
{
    const std::size_t pixelBytes = layout_.colours == 1 ? 2 : 3;
    std::byte* const to = pixels_.data() + (y * width_ + x) * pixelBytes;
    if (layout_.bits == 16)
        putAny<std::uint16_t>(row, to, count, layout_);
    else
        putAny<std::uint8_t>(row, to, count, layout_);
}

Picture PictureRows::take(std::string damage)
{
    Picture picture;
    picture.pixels = std::move(pixels_);
    picture.reducedDepth = layout_.bits == 16 && layout_.colours != 1;
    picture.damage = std::move(damage);
    return picture;
}

void upright(Picture& picture)
{
    const int code = std::exchange(picture.orientation, 1);
    if (code < 2 || code > 8) return;
    const auto width = static_cast<std::uint32_t>(picture.width()),
               height = static_cast<std::uint32_t>(picture.height());
    const std::uint32_t outWidth = code >= 5 ? height : width, outHeight = code >= 5 ? width : height;
    const std::uint32_t perPixel = picture.isGrey() ? 1 : 3;
    Array turned(picture.pixels.kind(), perPixel * outWidth, outHeight);
    if (picture.isGrey())
        turn(picture.pixels.elements<std::uint16_t>().data(), turned.elements<std::uint16_t>().data(), width,
             height, code);
    else
        turn(reinterpret_cast<const Rgb*>(picture.pixels.data()), reinterpret_cast<Rgb*>(turned.data()),
             width, height, code);
    picture.pixels = std::move(turned);
}

}  // namespace scansteps::imageio
