// Speed ratios measured in one run: a kernel and its reference alternate in blocks of a few milliseconds, and
// the median is reported, so that changes of clock rate and load affect both.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "scansteps/array.h"

namespace scansteps::bench {

inline double median(std::vector<double> values)
{
    if (values.empty()) return 0;
    std::nth_element(values.begin(), values.begin() + std::ptrdiff_t(values.size() / 2), values.end());
    return values[values.size() / 2];
}

// Processor time per call, which excludes time when the process is not scheduled.
template <class Work>
double secondsPerCall(Work& work, int calls)
{
    const std::clock_t start = std::clock();
    for (int k = 0; k < calls; ++k) {
        work();
        benchmark::ClobberMemory();
    }
    return double(std::clock() - start) / CLOCKS_PER_SEC / calls;
}

/// Number of calls that take about 4 ms.
template <class Work>
int callsInBlock(Work& work)
{
    secondsPerCall(work, 2);  // warm-up
    return int(std::clamp(0.004 / std::max(secondsPerCall(work, 4), 1e-6), 1.0, 100000.0));
}

/// Whether the core's other hardware thread seems to be idle: independent additions run about as fast as the
/// fastest so far. A load there, for example a neighbour on a shared machine, takes half of the execution
/// units, which slows down kernels but hardly memcpy.
inline bool coreIsWhole()
{
    const auto additions = [] {
        std::uint64_t a = 0, b = 0, c = 0, d = 0;
        const auto start = std::chrono::steady_clock::now();
        for (int k = 0; k < 20000; ++k) {
            benchmark::DoNotOptimize(++a);
            benchmark::DoNotOptimize(++b);
            benchmark::DoNotOptimize(++c);
            benchmark::DoNotOptimize(++d);
        }
        return std::chrono::steady_clock::now() - start;
    };
    static auto best = additions();
    const auto now = std::min(additions(), additions());
    best = std::min(best, now);
    return now < best + best / 4;
}

/// Repeats `turn` until coreIsWhole() holds before and after it; stops checking once the program has spent a
/// minute on discarded turns.
template <class Turn>
void undisturbed(Turn turn)
{
    static std::chrono::duration<double> lost{};
    for (;;) {
        const auto start = std::chrono::steady_clock::now();
        if (coreIsWhole() || lost.count() > 60) {
            turn();
            if (coreIsWhole() || lost.count() > 60) return;
        }
        lost += std::chrono::steady_clock::now() - start;
    }
}

/// Compares `work` with `reference`; reports "MPix/s" of `work` and, as the counter `label`, its speed
/// relative to the reference.
template <class Work, class Reference>
void compare(benchmark::State& state, double pixels, const std::string& label, Work work, Reference reference)
{
    const int workCalls = callsInBlock(work), referenceCalls = callsInBlock(reference);
    std::vector<double> times, ratios;
    for (auto _ : state) {
        double time = 0, other = 0;
        undisturbed([&] {
            time = secondsPerCall(work, workCalls);
            other = secondsPerCall(reference, referenceCalls);
        });
        ratios.push_back(other / time);
        times.push_back(time);
        state.SetIterationTime(time);
    }
    state.counters["MPix/s"] = 1e-6 * pixels / median(times);
    state.counters[label] = median(ratios);
}

/// Samples in memory allocated like a chain's frames: with malloc, in large pages if the system has them.
template <class T>
class Samples
{
  public:
    explicit Samples(std::size_t count) : array_(kindOf<T>(), std::uint32_t(count), 1) {}
    std::span<T> part(std::size_t first, std::size_t count)
    {
        return array_.elements<T>().subspan(first, count);
    }
    T& operator[](std::size_t k) { return array_.elements<T>()[k]; }

  private:
    Array array_;
};

/// A memcpy with the same traffic as a kernel: copies (bytes read + bytes written) / 2.
class Copy
{
  public:
    explicit Copy(std::size_t traffic) : size_(traffic / 2), from_(size_), to_(size_)
    {
        std::memset(from_.part(0, size_).data(), 1, size_);
    }
    void operator()()
    {
        std::memcpy(to_.part(0, size_).data(), from_.part(0, size_).data(), size_);
        benchmark::DoNotOptimize(to_[0]);
    }

  private:
    std::size_t size_;
    Samples<std::uint8_t> from_, to_;
};

/// Compares with memcpy: counter "of_memcpy".
template <class Work>
void compareWithCopy(benchmark::State& state, double pixels, double bytesPerPixel, Work work)
{
    compare(state, pixels, "of_memcpy", std::move(work), Copy(std::size_t(pixels * bytesPerPixel)));
}

/// The frame sizes for all kernels; the last one is for growth.
inline void frameSizes(benchmark::internal::Benchmark* b)
{
    b->Args({640, 480})->Args({1920, 1080})->Args({3840, 2160})->Args({7680, 4320});
    b->Iterations(15)->UseManualTime()->Unit(benchmark::kMicrosecond);  // turns, not calls
}

constexpr std::size_t kSmallWidth = 640, kSmallHeight = 480;

/// At the largest size only: counter "growth", the time of one frame over that of as many frames of 640 × 480
/// as have its pixels, alternating. The small frames are contiguous and occupy as much memory, so that
/// neither is in cache when its turn comes; the ratio is what the kernel itself loses on a large frame.
template <class Whole, class Small>
void compareWithSmallFrames(benchmark::State& state, std::size_t pixels, Whole whole, Small small,
                            int turns = 9)
{
    constexpr std::size_t kSmallPixels = kSmallWidth * kSmallHeight;
    if (pixels < 100 * kSmallPixels) return;
    const auto all = [&] {
        for (std::size_t k = 0; k < pixels / kSmallPixels; ++k) small(k);
    };
    std::vector<double> ratios;
    whole(), all();
    for (int turn = 0; turn < turns; ++turn) {
        const double time = secondsPerCall(whole, 1);
        ratios.push_back(time / secondsPerCall(all, 1));
    }
    state.counters["growth"] = median(ratios);
}

}  // namespace scansteps::bench
