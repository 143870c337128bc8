// Entries encoded and decoded per second, for a record of 20 entries that are typical of events.
#include <benchmark/benchmark.h>

#include <cstring>

#include "scansteps/stream.h"

namespace scansteps {
namespace {

// Discards all output.
class Null : public BIO
{
  public:
    void write(const void* bytes, std::size_t) override { benchmark::DoNotOptimize(bytes); }
    void read(void*, std::size_t) override {}
};

// Repeats the same bytes.
class Again : public BIO
{
  public:
    explicit Again(std::span<const std::byte> bytes) : bytes_(bytes) {}
    void write(const void*, std::size_t) override {}
    void read(void* to, std::size_t length) override
    {
        std::memcpy(to, bytes_.data() + at_, length);
        at_ = (at_ + length) % bytes_.size();
    }

  private:
    std::span<const std::byte> bytes_;
    std::size_t at_ = 0;
};

varitype twentyEntries()
{
    Struct record;
    for (int i = 0; i < 16; ++i) record.set("number" + std::to_string(i), i);
    record.set("eventType", 1002);
    record.set("dataFormat", "CPU::u_1x16");
    record.set("filename", "shots/img0001.jpg");
    record.set("scale", 0.5F);
    return record;
}

void encode(benchmark::State& state)
{
    const varitype record = twentyEntries();
    Null sink;
    for (auto _ : state) writeRecord(sink, record);
    state.counters["entries/s"] =
        benchmark::Counter(20.0 * double(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(encode);

void decode(benchmark::State& state)
{
    BIOmem bytes;
    writeRecord(bytes, twentyEntries());
    Again source(bytes.bytes());
    for (auto _ : state) benchmark::DoNotOptimize(readRecord(source));
    state.counters["entries/s"] =
        benchmark::Counter(20.0 * double(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(decode);

}  // namespace
}  // namespace scansteps

BENCHMARK_MAIN();
