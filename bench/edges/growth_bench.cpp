// Growth of the kernels without a peer: time per pixel of one frame of 7680 × 4320 over that of as many
// frames of 640 × 480 as have its pixels (see support/ratio.h). All frames are filled with copies of a
// photograph.
#include <array>

#include "corners/corner_response.h"
#include "edges/gradient_frame.h"
#include "edges/subpixel_edges.h"
#include "grey/grey_filters.h"
#include "grey/local_deviation.h"
#include "pixels/colour_channel.h"
#include "support/ratio.h"
#include "support/scaled.h"

namespace {

using namespace scansteps;
using namespace scansteps::corners;
using namespace scansteps::edges;
using namespace scansteps::grey;
using namespace scansteps::pixels;

constexpr std::size_t kWidth = 7680, kHeight = 4320;

// The large frame, or a part of its memory used as a small one.
struct Part
{
    int width, height;
    std::span<std::uint8_t> rgb, grey;
    std::span<std::uint16_t> frame;
    std::span<float> response;
    GreyView view() const { return {grey.data(), width, height, width}; }
};

class Frames
{
  public:
    Frames() : rgb_(3 * kPixels), grey_(kPixels), frame_(kPixels), response_(kPixels)
    {
        const test::Image photo = test::examplePhoto("img0000.jpg");
        const test::Image small = bench::reflected(photo, int(bench::kSmallWidth), int(bench::kSmallHeight));
        for (std::size_t k = 0; k < kPixels; k += bench::kSmallWidth * bench::kSmallHeight)
            std::copy(small.rgb.begin(), small.rgb.end(), rgb_.part(3 * k, small.rgb.size()).begin());
        for (std::size_t k = 0; k < kPixels; ++k) {
            grey_[k] = rgb_[3 * k + 1];
            frame_[k] = std::uint16_t(32768 + grey_[k]);
        }
    }

    Part whole() { return part(0, kWidth, kHeight); }
    Part small(std::size_t k)
    {
        return part(k * bench::kSmallWidth * bench::kSmallHeight, bench::kSmallWidth, bench::kSmallHeight);
    }

  private:
    static constexpr std::size_t kPixels = kWidth * kHeight;

    Part part(std::size_t first, std::size_t width, std::size_t height)
    {
        const std::size_t count = width * height;
        return {int(width),
                int(height),
                rgb_.part(3 * first, 3 * count),
                grey_.part(first, count),
                frame_.part(first, count),
                response_.part(first, count)};
    }

    bench::Samples<std::uint8_t> rgb_, grey_;
    bench::Samples<std::uint16_t> frame_;
    bench::Samples<float> response_;
};

// State that kernels keep between frames, one object per frame size.
struct Kept
{
    GreyImage image;
    FloatPlane dx, dy, plane;
    SubpixelPlanes planes;
    EdgeBits edges;
    std::vector<Vertex> positions;
    ScratchArena memory;
};

template <class Kernel>
void growth(benchmark::State& state, Kernel kernel)
{
    Frames frames;
    Kept large, small;
    for (auto _ : state)
        bench::compareWithSmallFrames(
            state, kWidth * kHeight, [&] { kernel(frames.whole(), large); },
            [&](std::size_t k) { kernel(frames.small(k), small); }, 5);
}

void channel(const Part& p, Kept&)
{
    channelOfRgb(p.rgb, p.frame, Channel::luma, std::array<float, 3>{});
}

void deviation(const Part& p, Kept& kept)
{
    localDeviation(p.frame, p.width, p.height, SampleCoding::Yuyv16, 7, 1.0F, &kept.memory);
}

void gradient(const Part& p, Kept& kept)
{
    gradientFrame16(p.frame, p.width, p.height, SampleCoding::Yuyv16, 0, 3, kept.dx, kept.dy, &kept.memory);
}

void subpixel(const Part& p, Kept& kept)
{
    kept.plane.resize(std::uint32_t(p.width), std::uint32_t(p.height));
    for (int y = 0; y < p.height; ++y) std::copy_n(p.view().row(y), p.width, kept.plane.row(std::size_t(y)));
    subpixelEdges(kept.plane, 40, 100, 3, kept.planes, kept.edges, kept.positions, &kept.memory);
}

void response(const Part& p, Kept& kept)
{
    cornerResponse(p.view(), {CornerKind::minEigenvalue, 1, 3}, p.response, &kept.memory);
}

void smoothing(const Part& p, Kept& kept)
{
    binomial5(p.view(), kept.image, &kept.memory);
}

void thirds(const Part& p, Kept& kept)
{
    twoThirds(p.view(), kept.image, &kept.memory);
}

BENCHMARK_CAPTURE(growth, channel, channel)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(growth, deviation, deviation)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(growth, gradient, gradient)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(growth, subpixel, subpixel)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(growth, response, response)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(growth, smoothing, smoothing)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(growth, thirds, thirds)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
