// Time of the corner detector and of its stages on photographs of 640 × 480.
#include <benchmark/benchmark.h>

#include <cstring>

#include "../../tests/support/images.h"
#include "corners/corners.h"
#include "grey/grey_filters.h"

namespace {

using namespace scansteps;
using namespace scansteps::corners;
using namespace scansteps::grey;

struct Frame
{
    std::vector<std::uint8_t> grey;
    int width, height;
    GreyView view() const { return {grey.data(), width, height, width}; }
};

const Frame& frame(const char* name = "img0000.jpg")
{
    static const test::Image photo = test::examplePhoto(name);
    static const Frame f{test::greyOf(photo), photo.width, photo.height};
    return f;
}

// A pair of frames, like the input of the step.
void detectPair(benchmark::State& state)
{
    const test::Image second = test::examplePhoto("img0006.jpg");
    const Frame other{test::greyOf(second), second.width, second.height};
    CornerSettings settings;
    settings.kind = CornerKind(state.range(0));
    settings.fast = state.range(1) != 0;
    CornerDetector a, b;
    std::size_t features = 0;
    for (auto _ : state)
        features = a.detect(frame().view(), settings).size() + b.detect(other.view(), settings).size();
    state.counters["features"] = double(features);
}
BENCHMARK(detectPair)->ArgsProduct({{0, 1}, {0, 1}})->Unit(benchmark::kMillisecond);

void response(benchmark::State& state)
{
    std::vector<float> out(frame().grey.size());
    for (auto _ : state) cornerResponse(frame().view(), {CornerKind(state.range(0)), 1, 3}, out);
}
BENCHMARK(response)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

void smoothing(benchmark::State& state)
{
    GreyImage out;
    for (auto _ : state) binomial5(frame().view(), out);
}
BENCHMARK(smoothing)->Unit(benchmark::kMicrosecond);

void thirds(benchmark::State& state)
{
    GreyImage out;
    for (auto _ : state) twoThirds(frame().view(), out);
}
BENCHMARK(thirds)->Unit(benchmark::kMicrosecond);

void descriptors(benchmark::State& state)
{
    for (auto _ : state)
        for (int i = 0; i < 1000; ++i)
            benchmark::DoNotOptimize(
                describe(frame().view(), float(20 + i / 2), float(20 + i / 3), float(i), true));
}
BENCHMARK(descriptors)->Unit(benchmark::kMicrosecond);

void orientations(benchmark::State& state)
{
    for (auto _ : state)
        for (int i = 0; i < 1000; ++i)
            benchmark::DoNotOptimize(orientationOf(frame().view(), 20 + i / 2, 20 + i / 3));
}
BENCHMARK(orientations)->Unit(benchmark::kMicrosecond);

void copyOfAPlane(benchmark::State& state)
{
    std::vector<float> in(frame().grey.size()), out(in.size());
    for (auto _ : state) {
        std::memcpy(out.data(), in.data(), 4 * in.size());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(copyOfAPlane)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
