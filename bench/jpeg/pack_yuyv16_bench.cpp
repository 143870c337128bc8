// Packing of planes to YUYV16, compared with memcpy of the bytes written, alternating in the same run:
// "ratio" is memcpy's time divided by ours. Frames are in cache as far as they fit, as after decoding.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <vector>

#include "jpeg/pack_yuyv16.h"

namespace {

void pack(benchmark::State& state)
{
    const auto width = std::size_t(state.range(0));
    const auto height = std::size_t(state.range(1));
    const std::vector<std::uint8_t> luma(width * height, 7);
    const std::vector<std::uint8_t> even(luma.size() / 4, 8);
    const std::vector<std::uint8_t> odd(luma.size() / 4, 9);
    const std::vector<std::uint16_t> from(luma.size(), 3);
    std::vector<std::uint16_t> dst(luma.size());
    std::vector<double> ratios;
    for ([[maybe_unused]] const auto& iteration : state) {
        const auto t0 = std::clock();
        scansteps::jpeg::packYuyv16(luma, even, odd, dst, width, height);
        benchmark::ClobberMemory();
        const auto t1 = std::clock();
        std::memcpy(dst.data(), from.data(), dst.size() * 2);
        benchmark::ClobberMemory();
        const auto t2 = std::clock();
        const double ours = double(std::max<std::clock_t>(t1 - t0, 1));
        state.SetIterationTime(ours / CLOCKS_PER_SEC);
        ratios.push_back(double(t2 - t1) / ours);
    }
    std::nth_element(ratios.begin(), ratios.begin() + std::ptrdiff_t(ratios.size() / 2), ratios.end());
    state.counters["ratio"] = ratios[ratios.size() / 2];
}

BENCHMARK(pack)->Args({640, 480})->Args({1920, 1088})->Args({3840, 2160})->UseManualTime();

}  // namespace

BENCHMARK_MAIN();
