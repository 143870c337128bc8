// Speed of the region detector on photographs, with the settings of the corner detector. Larger images
// consist of reflected copies of the photograph, so that the amount of detail per pixel stays the same.
#include <benchmark/benchmark.h>

#include "regions/mser.h"
#include "support/ratio.h"
#include "support/scaled.h"

namespace {

using namespace scansteps;
using namespace scansteps::regions;

std::vector<std::uint8_t> photoOf(const char* name, int width, int height)
{
    return test::greyOf(bench::reflected(test::examplePhoto(name), width, height));
}

void regions(benchmark::State& state, const char* name)
{
    const int width = int(state.range(0));
    const int height = int(state.range(1));
    const std::vector<std::uint8_t> grey = photoOf(name, width, height);
    const int area = width * height;
    MSER detector(1, MSER::fractionOf(9, area), MSER::fractionOf(1024, area), 0.2, 0.33, true);
    std::vector<Region> found;
    for (auto _ : state) {
        found.clear();
        detector(grey, width, height, found);
    }
    state.counters["regions"] = double(found.size());
    state.counters["MPix/s"] =
        benchmark::Counter(1e-6 * area * double(state.iterations()), benchmark::Counter::kIsRate);
}

// Only the counter "growth", from 640 × 480 to 7680 × 4320.
void growth(benchmark::State& state, const char* name)
{
    const auto worker = [&](int width, int height) {
        const int area = width * height;
        return [grey = photoOf(name, width, height), width, height, found = std::vector<Region>(),
                detector = MSER(1, MSER::fractionOf(9, area), MSER::fractionOf(1024, area), 0.2, 0.33,
                                true)]() mutable {
            found.clear();
            detector(grey, width, height, found);
        };
    };
    auto small = worker(bench::kSmallWidth, bench::kSmallHeight);
    auto large = worker(7680, 4320);
    for (auto _ : state)
        bench::compareWithSmallFrames(
            state, std::size_t{7680} * 4320, [&] { large(); }, [&](std::size_t) { small(); }, 3);
}

BENCHMARK_CAPTURE(regions, coffee, "img0000.jpg")
    ->Args({640, 480})
    ->Args({1280, 960})
    ->Args({1920, 1080})
    ->Args({3840, 2160})
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(regions, rocket, "photo_rocket.jpg")
    ->Args({640, 480})
    ->Args({3840, 2160})
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(regions, chelsea, "photo_chelsea.jpg")
    ->Args({640, 480})
    ->Args({3840, 2160})
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(regions, astronaut, "photo_astronaut.jpg")
    ->Args({640, 480})
    ->Args({3840, 2160})
    ->Unit(benchmark::kMillisecond);

BENCHMARK_CAPTURE(growth, coffee, "img0000.jpg")->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(growth, rocket, "photo_rocket.jpg")->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(growth, chelsea, "photo_chelsea.jpg")->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(growth, astronaut, "photo_astronaut.jpg")->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
