// Speed of the pixel conversions on a photograph (larger frames consist of reflected copies), compared with
// memcpy of the same amount of data and, if built with peers, with libyuv, called line by line so that the
// line between its two calls stays in cache.
#include <cstdint>
#include <vector>

#include "pixels/colour_length.h"
#include "pixels/grey_window.h"
#include "pixels/offset16.h"
#include "pixels/reduce16.h"
#include "pixels/yuyv.h"
#include "support/ratio.h"
#include "support/scaled.h"
#ifdef SCANSTEPS_PEER_LIBYUV
#include <libyuv.h>
#endif

namespace {

using namespace scansteps;
using namespace scansteps::pixels;

// Input of a kernel: a frame, or a part of one that is used as a frame.
struct View
{
    std::size_t width, height;
    std::span<std::uint16_t> wide, wideOut;
    std::span<std::uint8_t> rgb, rgbOut;
    std::span<float> plane;
};

struct Frame
{
    explicit Frame(const benchmark::State& state)
        : width(std::size_t(state.range(0))),
          height(std::size_t(state.range(1))),
          pixels(width * height),
          wide(pixels),
          wideOut(pixels),
          rgb(3 * pixels),
          rgbOut(3 * pixels),
          plane(pixels)
    {
        const test::Image photo =
            bench::reflected(test::examplePhoto("photo_coffee.jpg"), int(width), int(height));
        const std::vector<std::uint8_t> grey = test::greyOf(photo);
        std::copy(photo.rgb.begin(), photo.rgb.end(), rgb.part(0, 3 * pixels).begin());
        for (std::size_t k = 0; k < pixels; ++k) {
            wide[k] = std::uint16_t(grey[k] | photo.rgb[3 * k] << 8);
            plane[k] = float(wide[k]) - 32768;
        }
    }

    View view(std::size_t first, std::size_t w, std::size_t h)
    {
        const std::size_t count = w * h;
        return {w,
                h,
                wide.part(first, count),
                wideOut.part(first, count),
                rgb.part(3 * first, 3 * count),
                rgbOut.part(3 * first, 3 * count),
                plane.part(first, count)};
    }
    View whole() { return view(0, width, height); }

    std::size_t width, height, pixels;
    bench::Samples<std::uint16_t> wide, wideOut;
    bench::Samples<std::uint8_t> rgb, rgbOut;
    bench::Samples<float> plane;
};

template <class Kernel>
void againstCopy(benchmark::State& state, double bytesPerPixel, Kernel kernel)
{
    Frame f(state);
    const auto whole = [kernel, view = f.whole()] { kernel(view); };
    bench::compareWithCopy(state, double(f.pixels), bytesPerPixel, whole);
    bench::compareWithSmallFrames(state, f.pixels, whole, [&](std::size_t k) {
        kernel(f.view(k * bench::kSmallWidth * bench::kSmallHeight, bench::kSmallWidth, bench::kSmallHeight));
    });
}

void YuyvToRgb(benchmark::State& state)
{
    againstCopy(state, 5, [](const View& v) { yuyvToRgb(v.wide, v.rgbOut, v.width, v.height); });
}
BENCHMARK(YuyvToRgb)->Apply(bench::frameSizes);

void RgbToYuyv(benchmark::State& state)
{
    againstCopy(state, 5, [](const View& v) { rgbToYuyv(v.rgb, v.wideOut, v.width, v.height); });
}
BENCHMARK(RgbToYuyv)->Apply(bench::frameSizes);

void FloatToOffset16(benchmark::State& state)
{
    againstCopy(state, 6, [](const View& v) { floatToOffset16(v.plane, v.wideOut); });
}
BENCHMARK(FloatToOffset16)->Apply(bench::frameSizes);

void Offset16ToFloat(benchmark::State& state)
{
    againstCopy(state, 6, [](const View& v) { offset16ToFloat(v.wide, v.plane); });
}
BENCHMARK(Offset16ToFloat)->Apply(bench::frameSizes);

void ColourLength(benchmark::State& state)
{
    againstCopy(state, 5, [](const View& v) { colourLength(v.rgb, v.wideOut); });
}
BENCHMARK(ColourLength)->Apply(bench::frameSizes);

void GreyWindow(benchmark::State& state)
{
    againstCopy(state, 5, [](const View& v) { greyWindow(v.wide, v.rgbOut, 400, 128); });
}
BENCHMARK(GreyWindow)->Apply(bench::frameSizes);

void ReduceOffset16(benchmark::State& state)
{
    againstCopy(state, 2.5, [](const View& v) { reduceOffset16(v.wide, v.wideOut, v.width, v.height, 2); });
}
BENCHMARK(ReduceOffset16)->Apply(bench::frameSizes);

void ReduceYuyv16(benchmark::State& state)
{
    againstCopy(state, 2.5, [](const View& v) { reduceYuyv16(v.wide, v.wideOut, v.width, v.height, 2); });
}
BENCHMARK(ReduceYuyv16)->Apply(bench::frameSizes);

#ifdef SCANSTEPS_PEER_LIBYUV
// libyuv's "RGB24" is in BGR order; its RGB order ("RAW") is slower.
void YuyvToRgb_libyuv(benchmark::State& state)
{
    Frame f(state);
    std::vector<std::uint8_t> line(4 * f.width), out(3 * f.pixels);
    const int width = int(f.width);
    bench::compare(
        state, double(f.pixels), "of_libyuv",
        [v = f.whole()] { yuyvToRgb(v.wide, v.rgbOut, v.width, v.height); },
        [&] {
            for (std::size_t y = 0; y < f.height; ++y) {
                const auto* row = reinterpret_cast<const std::uint8_t*>(&f.wide[y * f.width]);
                libyuv::YUY2ToARGB(row, 2 * width, line.data(), 4 * width, width, 1);
                libyuv::ARGBToRGB24(line.data(), 4 * width, &out[3 * y * f.width], 3 * width, width, 1);
            }
        });
}
BENCHMARK(YuyvToRgb_libyuv)->Apply(bench::frameSizes);

void RgbToYuyv_libyuv(benchmark::State& state)
{
    Frame f(state);
    std::vector<std::uint8_t> line(4 * f.width), out(2 * f.pixels);
    const int width = int(f.width);
    bench::compare(
        state, double(f.pixels), "of_libyuv",
        [v = f.whole()] { rgbToYuyv(v.rgb, v.wideOut, v.width, v.height); },
        [&] {
            for (std::size_t y = 0; y < f.height; ++y) {
                libyuv::RGB24ToARGB(&f.rgb[3 * y * f.width], 3 * width, line.data(), 4 * width, width, 1);
                libyuv::ARGBToYUY2(line.data(), 4 * width, &out[2 * y * f.width], 2 * width, width, 1);
            }
        });
}
BENCHMARK(RgbToYuyv_libyuv)->Apply(bench::frameSizes);
#endif

}  // namespace

BENCHMARK_MAIN();
