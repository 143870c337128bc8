// Reduces regions by block means, which keeps thin edges visible, and encodes them.
#include "picture.h"

#include <fmt/format.h>
#include <png.h>
// jpeglib.h needs these declarations.
#include <jpeglib.h>
#include <cstddef>
#include <cstdio>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <memory>

namespace scansteps::viewer {

namespace {

// Calls visit with the elements of the frame as a span of their type.
template <class Visit>
void withElements(const Array& frame, Visit visit)
{
    switch (frame.kind()) {
        case Kind::Char:
            return visit(frame.elements<std::int8_t>());
        case Kind::Uchar:
            return visit(frame.elements<std::uint8_t>());
        case Kind::Short:
            return visit(frame.elements<std::int16_t>());
        case Kind::Ushort:
            return visit(frame.elements<std::uint16_t>());
        case Kind::Int:
            return visit(frame.elements<std::int32_t>());
        case Kind::Uint:
            return visit(frame.elements<std::uint32_t>());
        case Kind::Half:
            return visit(frame.elements<Half>());
        case Kind::Float:
            return visit(frame.elements<float>());
        case Kind::Double:
            return visit(frame.elements<double>());
        default:
            return;
    }
}

template <class T>
float numberOf(T element)
{
    if constexpr (std::is_same_v<T, std::uint16_t>)
        return float(int(element) - 32768);
    else
        return float(element);
}

std::uint8_t byteOf(float value)
{
    return static_cast<std::uint8_t>(std::clamp(value, 0.0F, 255.0F));
}

// From the window to 0 ... 255.
struct Mapping
{
    explicit Mapping(const Window& window)
        : low(float(window.first)),
          factor(window.second > window.first ? float(255 / (window.second - window.first)) : 255.0F)
    {
    }
    std::uint8_t operator()(float value) const
    {
        const float mapped = (value - low) * factor;
        return mapped > 0 ? byteOf(mapped + 0.5F) : 0;  // also for NaN
    }
    float low, factor;
};

struct Block
{
    std::int64_t begin = 0, end = 0;
};
// Block number `at` of `parts` equal blocks of `length` from `begin` on.
Block blockOf(std::int64_t begin, std::int64_t length, int parts, int at)
{
    return {begin + length * at / parts, begin + length * (at + 1) / parts};
}

// Calls store(x, sums, counts) for every output pixel, whose elements were added by add(row, x, sums,
// counts).
template <class Add, class Store>
void reduce(const Rect& region, int width, int height, const Add& add, const Store& store)
{
    std::vector<Block> columns;
    for (int x = 0; x < width; ++x) columns.push_back(blockOf(region.x, region.width, width, x));
    std::vector<std::array<float, 3>> sums(static_cast<std::size_t>(width));
    for (int y = 0; y < height; ++y) {
        std::fill(sums.begin(), sums.end(), std::array<float, 3>{});
        const Block rows = blockOf(region.y, region.height, height, y);
        for (std::int64_t row = rows.begin; row < rows.end; ++row)
            for (std::size_t x = 0; x < columns.size(); ++x)
                for (std::int64_t column = columns[x].begin; column < columns[x].end; ++column)
                    add(row, column, sums[x]);
        for (std::size_t x = 0; x < columns.size(); ++x) {
            const auto pixels = float((columns[x].end - columns[x].begin) * (rows.end - rows.begin));
            store(std::size_t(y) * columns.size() + x, sums[x], 1 / pixels);
        }
    }
}

void reduceRgb(std::span<const std::uint8_t> from, const Layout& layout, const Rect& region, int width,
               int height, const Mapping& mapping, std::uint8_t* to)
{
    reduce(
        region, width, height,
        [&](std::int64_t y, std::int64_t x, std::array<float, 3>& sums) {
            const std::uint8_t* pixel = from.data() + 3 * (std::size_t(y) * layout.width + std::size_t(x));
            for (std::size_t c = 0; c < 3; ++c) sums[c] += float(pixel[c]);
        },
        [&](std::size_t at, const std::array<float, 3>& sums, float share) {
            for (std::size_t c = 0; c < 3; ++c) to[3 * at + c] = mapping(sums[c] * share);
        });
}

// BT.601, studio range, unless there is no colour: grey frames in this format use the whole range.
void reduceYuyv(std::span<const std::uint16_t> from, const Layout& layout, const Rect& region, int width,
                int height, const Mapping& mapping, std::uint8_t* to)
{
    reduce(
        region, width, height,
        [&](std::int64_t y, std::int64_t x, std::array<float, 3>& sums) {
            const std::size_t at = std::size_t(y) * layout.width + std::size_t(x);
            const std::size_t pair = at - (std::size_t(x) & 1U);
            sums[0] += float(from[at] & 255U);
            sums[1] += float(from[pair] >> 8U);
            sums[2] += float(from[std::min(pair + 1, from.size() - 1)] >> 8U);
        },
        [&](std::size_t at, const std::array<float, 3>& sums, float share) {
            const float u = sums[1] * share - 128, v = sums[2] * share - 128;
            const bool isGrey = std::abs(u) < 0.01F && std::abs(v) < 0.01F;
            const float luma = isGrey ? sums[0] * share : 1.164F * (sums[0] * share - 16);
            to[3 * at] = mapping(luma + 1.596F * v);
            to[3 * at + 1] = mapping(luma - 0.391F * u - 0.813F * v);
            to[3 * at + 2] = mapping(luma + 2.018F * u);
        });
}

template <class T>
void reduceGrey(std::span<const T> from, const Layout& layout, const Rect& region, int width, int height,
                const Mapping& mapping, std::uint8_t* to)
{
    reduce(
        region, width, height,
        [&](std::int64_t y, std::int64_t x, std::array<float, 3>& sums) {
            sums[0] += numberOf(from[(std::size_t(y) * layout.width + std::size_t(x)) * layout.channels]);
        },
        [&](std::size_t at, const std::array<float, 3>& sums, float share) {
            to[at] = mapping(sums[0] * share);
        });
}

}  // namespace

Rect clipped(const Rect& wanted, const Layout& layout)
{
    const std::int64_t width = layout.width, height = layout.height;
    const std::int64_t left = std::clamp<std::int64_t>(wanted.x, 0, width) & ~std::int64_t{1};
    const std::int64_t top = std::clamp<std::int64_t>(wanted.y, 0, height);
    const auto end = [](std::int64_t begin, std::int64_t length, std::int64_t most) {
        return length > most ? most : std::clamp<std::int64_t>(begin + length, 0, most);
    };
    const std::int64_t right = std::min(
        (end(std::clamp<std::int64_t>(wanted.x, -width, width), wanted.width, width) + 1) & ~std::int64_t{1},
        width);
    const std::int64_t bottom =
        end(std::clamp<std::int64_t>(wanted.y, -height, height), wanted.height, height);
    if (right <= left || bottom <= top) return {0, 0, width, height};
    return {left, top, right - left, bottom - top};
}

Window autoWindow(const Array& frame, const Layout& layout)
{
    if (layout.samples != Samples::Offset16 && layout.samples != Samples::Numbers) return {0, 255};
    Window window{std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()};
    withElements(frame, [&](auto elements) {
        using T = typename decltype(elements)::value_type;
        float low = std::numeric_limits<float>::infinity(), high = -low;
        for (const T& element : elements) {
            const float value = numberOf(element);
            if (!std::isfinite(value)) continue;
            low = std::min(low, value);
            high = std::max(high, value);
        }
        window = {double(low), double(high)};
    });
    if (!(window.first <= window.second)) return {0, 255};
    if (window.first >= 0 && window.second <= 255 && window.second > 1) return {0, 255};
    return window;
}

JpegPicture jpegOf(const Array& frame, const Layout& layout, const Rect& region, int maxWidth, int maxHeight,
                   const Window& window)
{
    const double scale =
        std::min({1.0, double(maxWidth) / double(region.width), double(maxHeight) / double(region.height)});
    JpegPicture picture;
    picture.width = std::max(1, int(double(region.width) * scale));
    picture.height = std::max(1, int(double(region.height) * scale));
    const bool isColour = layout.samples == Samples::Rgb8 || layout.samples == Samples::Yuyv16;
    const int channels = isColour ? 3 : 1;
    Bytes pixels(std::size_t(picture.width) * std::size_t(picture.height) * std::size_t(channels));
    const Mapping mapping(window);
    if (layout.samples == Samples::Rgb8)
        reduceRgb(frame.elements<std::uint8_t>(), layout, region, picture.width, picture.height, mapping,
                  pixels.data());
    else if (layout.samples == Samples::Yuyv16)
        reduceYuyv(frame.elements<std::uint16_t>(), layout, region, picture.width, picture.height, mapping,
                   pixels.data());
    else
        withElements(frame, [&](auto elements) {
            reduceGrey(elements, layout, region, picture.width, picture.height, mapping, pixels.data());
        });
    picture.bytes = encodeJpeg(pixels, picture.width, picture.height, channels, 88);
    return picture;
}

std::optional<Bytes> exactOf(const Array& frame, const Layout& layout, const Rect& region)
{
    if (region.width * region.height > kMaxExact) return std::nullopt;
    const std::size_t stride = layout.width * layout.pixelBytes();
    const std::size_t left = std::size_t(region.x) * layout.pixelBytes();
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = png_uint_32(std::size_t(region.width) * layout.pixelBytes());
    image.height = png_uint_32(region.height);
    image.format = PNG_FORMAT_GRAY;
    image.flags = PNG_IMAGE_FLAG_FAST;
    Bytes bytes(PNG_IMAGE_PNG_SIZE_MAX(image));
    png_alloc_size_t size = bytes.size();
    const auto* first =
        reinterpret_cast<const std::uint8_t*>(frame.data()) + std::size_t(region.y) * stride + left;
    if (png_image_write_to_memory(&image, bytes.data(), &size, 0, first, png_int_32(stride), nullptr) == 0)
        return std::nullopt;
    bytes.resize(size);
    bytes.shrink_to_fit();
    return bytes;
}

Histogram histogramOf(const Array& frame, const Layout& layout)
{
    constexpr std::size_t kBins = 256, kMaxSamples = 1U << 20U;
    Histogram histogram;
    const std::size_t channels = layout.samples == Samples::Rgb8 ? 3 : 1;
    const Window range = autoWindow(frame, layout);
    histogram.low = range.first;
    histogram.high = range.second;
    histogram.bins.assign(channels, std::vector<std::uint32_t>(kBins));
    float least = std::numeric_limits<float>::infinity(), greatest = -least;
    const float factor =
        range.second > range.first ? float(double(kBins - 1) / (range.second - range.first)) : 0.0F;
    withElements(frame, [&](auto elements) {
        const std::size_t pixels = elements.size() / layout.channels;
        const std::size_t step = (pixels + kMaxSamples - 1) / kMaxSamples;
        for (std::size_t pixel = 0; pixel < pixels; pixel += step)
            for (std::size_t c = 0; c < channels; ++c) {
                float value = numberOf(elements[pixel * layout.channels + c]);
                if constexpr (std::is_same_v<typename decltype(elements)::value_type, std::uint16_t>)
                    if (layout.samples == Samples::Yuyv16)
                        value = float(elements[pixel * layout.channels + c] & 255U);
                if (!std::isfinite(value)) continue;
                least = std::min(least, value);
                greatest = std::max(greatest, value);
                const float bin = (value - float(range.first)) * factor + 0.5F;
                ++histogram.bins[c][std::size_t(std::clamp(bin, 0.0F, float(kBins - 1)))];
            }
    });
    if (least <= greatest) {
        histogram.least = double(least);
        histogram.greatest = double(greatest);
    }
    return histogram;
}

std::string valueText(const Array& frame, const Layout& layout, std::int64_t x, std::int64_t y)
{
    if (x < 0 || y < 0 || x >= layout.width || y >= layout.height) return "";
    const std::size_t at = (std::size_t(y) * layout.width + std::size_t(x)) * layout.channels;
    std::string text;
    withElements(frame, [&](auto elements) {
        using T = typename decltype(elements)::value_type;
        if constexpr (std::is_same_v<T, std::uint16_t>)
            if (layout.samples == Samples::Yuyv16) {
                text = fmt::format("Y {}, {} {}", elements[at] & 255U, (x & 1) == 0 ? "Cb" : "Cr",
                                   elements[at] >> 8U);
                return;
            }
        if (layout.samples == Samples::Rgb8) {
            text = fmt::format("R {}, G {}, B {}", float(elements[at]), float(elements[at + 1]),
                               float(elements[at + 2]));
            return;
        }
        for (std::size_t c = 0; c < layout.channels; ++c)
            text += fmt::format("{}{}", c == 0 ? "" : ", ", numberOf(elements[at + c]));
    });
    return text;
}

Bytes encodeJpeg(std::span<const std::uint8_t> pixels, int width, int height, int channels, int quality)
{
    struct Errors : jpeg_error_mgr
    {
    };
    Errors errors;
    jpeg_compress_struct encoder{};
    encoder.err = jpeg_std_error(&errors);
    errors.error_exit = [](j_common_ptr) { throw "a picture could not be encoded"; };
    errors.output_message = [](j_common_ptr) {};
    jpeg_create_compress(&encoder);
    unsigned char* out = nullptr;
    unsigned long size = 0;
    const auto close = [&] {
        jpeg_destroy_compress(&encoder);
        std::free(out);
    };
    try {
        jpeg_mem_dest(&encoder, &out, &size);
        encoder.image_width = JDIMENSION(width);
        encoder.image_height = JDIMENSION(height);
        encoder.input_components = channels;
        encoder.in_color_space = channels == 3 ? JCS_RGB : JCS_GRAYSCALE;
        jpeg_set_defaults(&encoder);
        jpeg_set_quality(&encoder, quality, TRUE);
        encoder.dct_method = JDCT_IFAST;
        jpeg_start_compress(&encoder, TRUE);
        const std::size_t stride = std::size_t(width) * std::size_t(channels);
        while (encoder.next_scanline < encoder.image_height) {
            auto* row = const_cast<JSAMPROW>(pixels.data() + encoder.next_scanline * stride);
            jpeg_write_scanlines(&encoder, &row, 1);
        }
        jpeg_finish_compress(&encoder);
        Bytes bytes(out, out + size);
        close();
        return bytes;
    } catch (...) {
        close();
        throw;
    }
}

}  // namespace scansteps::viewer
