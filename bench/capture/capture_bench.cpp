// Frame rate of a test camera without rate limit, alone and with the edge detector, for 1920 × 1080 YUY2
// frames, compared with copying such a frame. When pinned to one core, device and chain share it. Finally, 5
// s of a camera at 60 frames per second, with the number of dropped frames.
#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <vector>

#include "capture/capture.h"
#include "plugin/factories.h"
#include "scansteps/handles.h"
#include "scansteps/texture.h"

namespace scansteps {

using namespace capture;

namespace {

constexpr int kWidth = 1920, kHeight = 1080;

class CameraChain
{
  public:
    explicit CameraChain(bool edges)
    {
        fillFreeHandles(table_);
        installHandles(&table_);
        camera_ = plugin::createStep("ccap1");
        edges_ = plugin::createStep("ccanny");
        if (edges) camera_->setNext(edges_.get());
        varitype record{Struct{{"eventType", event::kInit},
                               {"dataX", kWidth},
                               {"dataY", kHeight},
                               {"capture", Struct{{"dev_name", "test:moving@max"}}}}};
        camera_->dispatch(record);
    }
    CameraChain(const CameraChain&) = delete;
    CameraChain& operator=(const CameraChain&) = delete;
    ~CameraChain()
    {
        camera_.reset();
        edges_.reset();
        for (SlotRecord* slot : table_.slots) delete slot;
    }

    void next()
    {
        varitype record{Struct{{"eventType", event::kProcess}}};
        camera_->dispatch(record);
    }

  private:
    HandleTable table_;
    std::unique_ptr<cChain> camera_, edges_;
};

void capture(benchmark::State& state, bool edges)
{
    CameraChain chain(edges);
    for (auto _ : state) chain.next();
    state.counters["frames/s"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

// Calls the queue directly, because a chain does not show the number of dropped frames.
void withoutADrop(benchmark::State& state)
{
    HandleTable table;
    fillFreeHandles(table);
    installHandles(&table);
    {
        const auto edges = plugin::createStep("ccanny");
        varitype settings{Struct{{"eventType", event::kInit},
                                 {"dataX", kWidth},
                                 {"dataY", kHeight},
                                 {"dataFormat", "CPU::u_1x16"},
                                 {"VideoFormat", "YUYV16"}}};
        edges->dispatch(settings);
        const auto frame = createTexture(format::kU1x16, kWidth, kHeight);
        Capture capture({kWidth, kHeight, false, "test:moving@60"});
        for (auto _ : state) {
            capture.next(pixelsOf(int(frame->handle)).elements<std::uint16_t>(), 0);
            varitype record{Struct{{"eventType", event::kProcess}, {"handle", std::int32_t(frame->handle)}}};
            edges->dispatch(record);
        }
        state.counters["frames/s"] =
            benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
        state.counters["dropped"] = static_cast<double>(capture.queue().skippedFrames());
    }
    for (SlotRecord* slot : table.slots) delete slot;
}

void copyOfAFrame(benchmark::State& state)
{
    std::vector<std::byte> from(2U * kWidth * kHeight, std::byte{1}), to(from.size());
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), from.size());
        benchmark::DoNotOptimize(to.data());
        benchmark::ClobberMemory();
    }
}

BENCHMARK(copyOfAFrame)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(capture, alone, false)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(capture, ccanny, true)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(withoutADrop)->UseRealTime()->Unit(benchmark::kMillisecond)->Iterations(300);

}  // namespace
}  // namespace scansteps

BENCHMARK_MAIN();
