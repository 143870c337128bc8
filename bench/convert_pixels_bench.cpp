// Speed of the pixel conversions against memcpy of the same traffic and, where built with peers, against
// libyuv called line by line, the line between its two calls staying in cache.
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "convert/grey_window.h"
#include "convert/offset16.h"
#include "convert/reduce16.h"
#include "convert/rgb_magnitude.h"
#include "convert/yuyv.h"
#include "ratio.h"
#ifdef SCANSTEPS_PEER_LIBYUV
#include <libyuv.h>
#endif

namespace {

using namespace scansteps;

struct Frame
{
    explicit Frame(const benchmark::State& state)
        : width(std::size_t(state.range(0))),
          height(std::size_t(state.range(1))),
          pixels(width * height),
          wide(pixels),
          wideOut(pixels),
          rgb(3 * pixels),
          rgbOut(3 * pixels)
    {
        // A smooth field with some noise, as pictures have.
        std::mt19937 random(1);
        for (std::size_t k = 0; k < pixels; ++k) {
            const double wave = std::sin(double(k % width) * 0.01) + std::cos(double(k / width) * 0.013);
            const auto level = unsigned(128 + 50 * wave + double(random() % 8));
            wide[k] = std::uint16_t(level | (128 + random() % 16) << 8);
            for (unsigned c = 0; c < 3; ++c) rgb[3 * k + c] = std::uint8_t(level - 9 * c);
        }
    }

    std::size_t width, height, pixels;
    std::vector<std::uint16_t> wide, wideOut;
    std::vector<std::uint8_t> rgb, rgbOut;
};

void YuyvToRgb(benchmark::State& state)
{
    Frame f(state);
    bench::compareWithCopy(state, double(f.pixels), 5,
                           [&] { yuyvToRgb(f.wide, f.rgbOut, f.width, f.height); });
}
BENCHMARK(YuyvToRgb)->Apply(bench::frameSizes);

void RgbToYuyv(benchmark::State& state)
{
    Frame f(state);
    bench::compareWithCopy(state, double(f.pixels), 5,
                           [&] { rgbToYuyv(f.rgb, f.wideOut, f.width, f.height); });
}
BENCHMARK(RgbToYuyv)->Apply(bench::frameSizes);

void FloatToOffset16(benchmark::State& state)
{
    Frame f(state);
    std::vector<float> plane(f.pixels);
    for (std::size_t k = 0; k < f.pixels; ++k) plane[k] = float(f.wide[k]) - 32768;
    bench::compareWithCopy(state, double(f.pixels), 6, [&] { floatToOffset16(plane, f.wideOut); });
}
BENCHMARK(FloatToOffset16)->Apply(bench::frameSizes);

void Offset16ToFloat(benchmark::State& state)
{
    Frame f(state);
    std::vector<float> plane(f.pixels);
    bench::compareWithCopy(state, double(f.pixels), 6, [&] { offset16ToFloat(f.wide, plane); });
}
BENCHMARK(Offset16ToFloat)->Apply(bench::frameSizes);

void RgbToOffset16(benchmark::State& state)
{
    Frame f(state);
    bench::compareWithCopy(state, double(f.pixels), 5, [&] { rgbToOffset16(f.rgb, f.wideOut); });
}
BENCHMARK(RgbToOffset16)->Apply(bench::frameSizes);

void GreyWindow(benchmark::State& state)
{
    Frame f(state);
    bench::compareWithCopy(state, double(f.pixels), 5, [&] { greyWindow(f.wide, f.rgbOut, 400, 128); });
}
BENCHMARK(GreyWindow)->Apply(bench::frameSizes);

void ReduceOffset16(benchmark::State& state)
{
    Frame f(state);
    bench::compareWithCopy(state, double(f.pixels), 2.5,
                           [&] { reduceOffset16(f.wide, f.wideOut, f.width, f.height, 2); });
}
BENCHMARK(ReduceOffset16)->Apply(bench::frameSizes);

void ReduceYuyv16(benchmark::State& state)
{
    Frame f(state);
    bench::compareWithCopy(state, double(f.pixels), 2.5,
                           [&] { reduceYuyv16(f.wide, f.wideOut, f.width, f.height, 2); });
}
BENCHMARK(ReduceYuyv16)->Apply(bench::frameSizes);

#ifdef SCANSTEPS_PEER_LIBYUV
// libyuv's "RGB24" is blue first; the other order ("RAW") is slower there.
void YuyvToRgb_libyuv(benchmark::State& state)
{
    Frame f(state);
    std::vector<std::uint8_t> line(4 * f.width), out(3 * f.pixels);
    const int width = int(f.width);
    bench::compare(
        state, double(f.pixels), "of_libyuv", [&] { yuyvToRgb(f.wide, f.rgbOut, f.width, f.height); },
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
        state, double(f.pixels), "of_libyuv", [&] { rgbToYuyv(f.rgb, f.wideOut, f.width, f.height); },
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
