// Whole commands with and without threads for reading and writing, in turns, on all processors: what
// `load.ahead` and `write.behind` gain on a series, and what they cost for a single picture.
#include <sched.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "../../tests/support/jpeg.h"
#include "support/ratio.h"
#include "support/scaled.h"

namespace scansteps {
namespace {

constexpr int kPictures = 60, kWidth = 1920, kHeight = 1088;
const std::string kProgram = SCANSTEPS_BIN_DIR "/scansteps";

// Benchmarks run on one processor; these need all of them.
void useAllProcessors()
{
    cpu_set_t all;
    CPU_ZERO(&all);
    for (long i = 0; i < sysconf(_SC_NPROCESSORS_ONLN); ++i) CPU_SET(std::size_t(i), &all);
    sched_setaffinity(0, sizeof all, &all);
}

// A folder in memory with the pictures, and a recording of them.
class Series
{
  public:
    Series()
    {
        useAllProcessors();
        folder_ = std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : ".";
        folder_ /= "scansteps_bench_throughput";
        std::filesystem::create_directories(folder_);
        const char* names[] = {"coffee", "chelsea", "rocket", "astronaut"};
        std::vector<std::vector<std::uint8_t>> files;
        for (const char* name : names)
            files.push_back(test::encodeJpeg(
                bench::scaled(test::examplePhoto(std::string("photo_") + name + ".jpg"), kWidth, kHeight),
                {.quality = 90}));
        for (int i = 0; i < kPictures; ++i) {
            const auto& bytes = files[std::size_t(i) % files.size()];
            const std::string name = std::string(i < 10 ? "in0" : "in") + std::to_string(i) + ".jpg";
            std::ofstream(folder_ / name, std::ios::binary)
                .write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
        }
        seconds("cjread load.name=@in00.jpg ! cyuv ! filesaver name=@in.rec");
    }
    ~Series() { std::filesystem::remove_all(folder_); }
    Series(const Series&) = delete;
    Series& operator=(const Series&) = delete;

    // Runs a pipeline; @ is the folder.
    double seconds(std::string pipeline, const std::string& options = "") const
    {
        for (std::size_t at = 0; (at = pipeline.find('@')) != pipeline.npos;)
            pipeline.replace(at, 1, folder_.string() + "/");
        const std::string command =
            "\"" + kProgram + "\" run \"" + pipeline + "\" --quiet --step-output none" + options;
        const auto start = std::chrono::steady_clock::now();
        if (std::system(command.c_str()) != 0) std::abort();
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }

  private:
    std::filesystem::path folder_;
};

// Counters "alone_ms", the time without threads, and "speedup" with those that are there by default.
void throughput(benchmark::State& state, const char* pipeline)
{
    const Series series;
    const std::string off = " --set load.ahead=0 --set write.behind=0";
    std::vector<double> times, alone, ratios;
    series.seconds(pipeline);
    for (auto _ : state) {
        times.push_back(series.seconds(pipeline));
        alone.push_back(series.seconds(pipeline, off));
        ratios.push_back(alone.back() / times.back());
        state.SetIterationTime(times.back());
    }
    state.counters["alone_ms"] = 1e3 * bench::median(alone);
    state.counters["threads_ms"] = 1e3 * bench::median(times);
    state.counters["speedup"] = bench::median(ratios);
    state.counters["processors"] = double(sysconf(_SC_NPROCESSORS_ONLN));
}

#define SERIES(name, pipeline) \
    BENCHMARK_CAPTURE(throughput, name, pipeline)->UseManualTime()->Unit(benchmark::kMillisecond)

SERIES(edges, "cjread load.name=@in00.jpg ! cyuv ! ccanny ! cjwrite name=@out00.jpg")->Iterations(11);
SERIES(recording, "read load.name=@in.rec ! ccanny ! filesaver name=@out.rec")->Iterations(11);
SERIES(single, "cjread load.name=@in59.jpg ! cyuv ! ccanny ! cjwrite name=@out00.jpg")->Iterations(101);

}  // namespace
}  // namespace scansteps

BENCHMARK_MAIN();
