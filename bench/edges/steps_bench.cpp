// Processor time per frame of 1920 × 1088 for the steps that find edges, lines, regions and motions.
// Successive frames are slightly shifted copies of a photograph.
#include <memory>
#include <string>
#include <vector>

#include "plugin/factories.h"
#include "scansteps/handles.h"
#include "scansteps/texture.h"
#include "support/ratio.h"
#include "support/scaled.h"
#include "support/silence.h"

namespace scansteps {

namespace {

constexpr int kWidth = 1920, kHeight = 1088, kShifts = 4;

const std::vector<std::vector<std::uint16_t>>& frames()
{
    static const auto made = [] {
        const test::Image photo =
            bench::scaled(test::examplePhoto("photo_coffee.jpg"), kWidth + 3 * kShifts, kHeight + kShifts);
        const std::vector<std::uint8_t> grey = test::greyOf(photo);
        std::vector<std::vector<std::uint16_t>> all(kShifts);
        for (std::size_t k = 0; k < kShifts; ++k)
            for (std::size_t y = 0; y < kHeight; ++y)
                for (std::size_t x = 0; x < kWidth; ++x)
                    all[k].push_back(
                        std::uint16_t(32768 + grey[(y + k) * std::size_t(photo.width) + x + 3 * k]));
        return all;
    }();
    return made;
}

void frame(benchmark::State& state, const char* kind)
{
    HandleTable table;
    fillFreeHandles(table);
    installHandles(&table);
    {
        const bench::Silence silence;
        const auto step = plugin::createStep(kind);
        const auto own = createTexture(formatCode("u_1x16"), kWidth, kHeight);
        varitype settings{Struct{{"eventType", event::kInit},
                                 {"dataX", kWidth},
                                 {"dataY", kHeight},
                                 {"dataFormat", "CPU::u_1x16"},
                                 {"OCV", Struct{{"lp0", 1}, {"trl", 60.0F}, {"trh", 150.0F}}}}};
        step->dispatch(settings);
        std::size_t next = 0;
        const auto once = [&] {
            const auto& from = frames()[next++ % kShifts];
            Array& pixels = pixelsOf(int(own->handle));
            pixels = Array(Kind::Ushort, kWidth, kHeight);
            std::ranges::copy(from, pixels.elements<std::uint16_t>().begin());
            varitype record{Struct{{"eventType", event::kProcess}, {"handle", int(own->handle)}}};
            const std::clock_t start = std::clock();
            step->dispatch(record);
            return double(std::clock() - start) / CLOCKS_PER_SEC;
        };
        once(), once();
        std::vector<double> times;
        for (auto _ : state) {
            times.push_back(once());
            state.SetIterationTime(times.back());
        }
        state.counters["median_ms"] = 1e3 * bench::median(times);
    }
    installHandles(nullptr);
}

// clang-format off
#define SCANSTEPS_FRAME(Step, kind) BENCHMARK_CAPTURE(frame, Step, #kind)->Name(#Step)->Iterations(12)->UseManualTime()->Unit(benchmark::kMillisecond)
// clang-format on
SCANSTEPS_FRAME(CpuCanny, ccanny);
SCANSTEPS_FRAME(CpuCanny2a, ccanny2a);
SCANSTEPS_FRAME(CpuCanny2b, ccanny2b);
SCANSTEPS_FRAME(CpuCanny2c, ccanny2c);
SCANSTEPS_FRAME(CpuCanny5, ccanny5old);
SCANSTEPS_FRAME(CpuCanny6, ccanny5);
SCANSTEPS_FRAME(CpuCanny7, ccanny7);
SCANSTEPS_FRAME(CpuEdge, cedge);
SCANSTEPS_FRAME(CpuDev1, cdeva);
SCANSTEPS_FRAME(CpuSegment, csegment);
SCANSTEPS_FRAME(CpuRegE, c2rege);
SCANSTEPS_FRAME(CpuRegE5, c2rege5);

}  // namespace
}  // namespace scansteps

BENCHMARK_MAIN();
