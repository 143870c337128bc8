// Overhead of a chain: dispatch, copying a record of 20 entries and forwarding it. The steps take the frame
// and do nothing with it.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

#include "scansteps/frame.h"
#include "scansteps/handles.h"

namespace scansteps {
namespace {

// A step with everything but a computation.
class Nothing final : public CPUBase
{
  public:
    Nothing() { in_.create(64, 64, 1, format::kU1x16); }
    void process(varitype& params) override
    {
        FrameScope frame(*this, params, in_);
        frame.forward();
    }

  private:
    TextureSet in_;
};

class Last final : public CPUBase
{
  public:
    void process(varitype& params) override { benchmark::DoNotOptimize(params); }
};

varitype twentyEntries(int handle)
{
    Struct record;
    for (int i = 0; i < 14; ++i) record.set("number" + std::to_string(i), i);
    record.set("eventType", event::kProcess);
    record.set("handle", handle);
    record.set("dataFormat", "CPU::u_1x16");
    record.set("filename", "shots/img0001.jpg");
    record.set("scale", 0.5F);
    record.set("OCV", Struct{{"order", 3}, {"trh", 150.0F}, {"trl", 60.0F}});
    return record;
}

void step(benchmark::State& state)
{
    HandleTable table;
    fillFreeHandles(table);
    installHandles(&table);
    {
        const auto count = std::size_t(state.range(0));
        const auto host = createTexture(format::kU1x16, 64, 64);
        std::vector<std::unique_ptr<Nothing>> steps;
        Last last;
        for (std::size_t k = 0; k < count; ++k) {
            steps.push_back(std::make_unique<Nothing>());
            if (k > 0) steps[k - 1]->setNext(steps[k].get());
        }
        steps.back()->setNext(&last);
        varitype record = twentyEntries(int(host->handle));
        for (auto _ : state) steps.front()->dispatch(record);
        state.counters["s/step"] =
            benchmark::Counter(double(state.iterations()) * double(count),
                               benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    }
    installHandles(nullptr);
}
BENCHMARK(step)->Arg(1)->Arg(8);

}  // namespace
}  // namespace scansteps

BENCHMARK_MAIN();
