// Speed of the kernels that compute planes (colour channel, gradient, deviation) on a photograph of 640 ×
// 480. The counter "times_plain" is the speed relative to the scalar version, if there is one.
#include "../../tests/support/images.h"
#include "edges/gradient_frame.h"
#include "edges/subpixel_edges.h"
#include "grey/local_deviation.h"
#include "pixels/colour_channel.h"
#include "support/ratio.h"

namespace {

using namespace scansteps;
using namespace scansteps::edges;
using namespace scansteps::grey;
using namespace scansteps::pixels;

const test::Image& photo()
{
    static const test::Image image = test::examplePhoto("img0000.jpg");
    return image;
}

std::vector<std::uint16_t> offsetFrame()
{
    std::vector<std::uint16_t> frame;
    for (const std::uint8_t v : test::greyOf(photo())) frame.push_back(std::uint16_t(32768 + v));
    return frame;
}

void channel(benchmark::State& state, Channel which)
{
    std::vector<std::uint16_t> out(photo().rgb.size() / 3);
    const std::array<float, 3> weights{0.3F, 0.5F, 0.2F};
    bench::compare(
        state, double(out.size()), "times_plain", [&] { channelOfRgb(photo().rgb, out, which, weights); },
        [&] { pixels::scalar::channelOfRgb(photo().rgb, out, which, weights); });
}
BENCHMARK_CAPTURE(channel, luma, Channel::luma)->Iterations(25)->UseManualTime();
BENCHMARK_CAPTURE(channel, mixture, Channel::mixture)->Iterations(25)->UseManualTime();

void deviation(benchmark::State& state)
{
    const std::vector<std::uint16_t> frame = offsetFrame();
    std::vector<std::uint16_t> out = frame;
    ScratchArena memory;
    bench::compare(
        state, double(out.size()), "times_plain",
        [&] {
            out = frame;
            localDeviation(out, 640, 480, SampleCoding::Offset16, 7, 1.0F, &memory);
        },
        [&] {
            out = frame;
            grey::scalar::localDeviation(out, 640, 480, SampleCoding::Offset16, 7, 1.0F);
        });
}
BENCHMARK(deviation)->Iterations(25)->UseManualTime();

void gradient(benchmark::State& state)
{
    const std::vector<std::uint16_t> frame = offsetFrame();
    std::vector<std::uint16_t> out;
    FloatPlane dx, dy;
    ScratchArena memory;
    for (auto _ : state) {
        out = frame;
        gradientFrame16(out, 640, 480, SampleCoding::Offset16, 0, 3, dx, dy, &memory);
    }
}
BENCHMARK(gradient)->Unit(benchmark::kMicrosecond);

void subpixel(benchmark::State& state)
{
    const std::vector<std::uint8_t> grey = test::greyOf(photo());
    FloatPlane plane(640, 480);
    for (std::size_t i = 0; i < grey.size(); ++i) plane.row(i / 640)[i % 640] = grey[i];
    ScratchArena memory;
    SubpixelPlanes planes;
    EdgeBits edges;
    std::vector<Vertex> positions;
    for (auto _ : state) subpixelEdges(plane, 40, 100, 3, planes, edges, positions, &memory);
}
BENCHMARK(subpixel)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
