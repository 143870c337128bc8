// The demo pipeline, from JPEG files to edge pictures: which share of its time the JPEG library and the edge
// detector take when they are called alone, with the same frames and alternating with the pipeline.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "../../tests/support/jpeg.h"
#include "edges/canny_frame16.h"
#include "images/input_file.h"
#include "images/jpeg_file.h"
#include "pixels/yuyv.h"
#include "plugin/factories.h"
#include "scansteps/handles.h"
#include "scansteps/record.h"
#include "support/ratio.h"
#include "support/scaled.h"

namespace scansteps {

using namespace edges;
using namespace grey;
using namespace images;
using namespace pixels;

class Cjread;
class CpuYUV;
class CpuCanny;
class Cjwrite;

namespace {

constexpr int kFrames = 8, kQuality = 90, kLow = 60, kHigh = 160;

// Discards standard output during its lifetime.
class Silence
{
  public:
    Silence()
    {
        std::fflush(stdout);
        const int nowhere = ::open("/dev/null", O_WRONLY);
        ::dup2(nowhere, STDOUT_FILENO);
        ::close(nowhere);
    }
    ~Silence()
    {
        std::fflush(stdout);
        ::dup2(before_, STDOUT_FILENO);
        ::close(before_);
    }

  private:
    int before_ = ::dup(STDOUT_FILENO);
};

double seconds()
{
    return double(std::clock()) / CLOCKS_PER_SEC;
}

/// A folder in memory with photographs of camera size.
class Photos
{
  public:
    Photos(int width, int height)
        : width_(width),
          height_(height),
          folder_(std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : ".")
    {
        folder_ /= "scansteps_bench_pipeline";
        std::filesystem::create_directories(folder_);
        const char* names[] = {"coffee", "chelsea", "rocket", "astronaut"};
        // One file more than frames, because the reader decodes the next file before it delivers a frame.
        for (int i = 0; i <= kFrames; ++i) {
            const test::Image photo = test::examplePhoto(std::string("photo_") + names[i % 4] + ".jpg");
            const auto bytes = test::encodeJpeg(bench::scaled(photo, width, height), {.quality = kQuality});
            std::ofstream(file("in", i), std::ios::binary)
                .write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
        }
    }
    ~Photos() { std::filesystem::remove_all(folder_); }
    Photos(const Photos&) = delete;
    Photos& operator=(const Photos&) = delete;

    std::string file(const char* name, int i) const
    {
        return (folder_ / (std::string(name) + "000" + std::to_string(i) + ".jpg")).string();
    }
    int width() const { return width_; }
    int height() const { return height_; }
    double pixels() const { return double(width_) * height_; }

  private:
    int width_, height_;
    std::filesystem::path folder_;
};

/// The steps of examples/edges.json.
class Pipeline
{
  public:
    explicit Pipeline(const Photos& photos) : photos_(photos)
    {
        fillFreeHandles(table_);
        installHandles(&table_);
        steps_.push_back(plugin::createStep("cjread"));
        steps_.push_back(plugin::createStep("cyuv"));
        steps_.push_back(plugin::createStep("ccanny"));
        steps_.push_back(plugin::createStep("cjwrite"));
        for (std::size_t k = 1; k < steps_.size(); ++k) steps_[k - 1]->setNext(steps_[k].get());
        varitype record{Struct{{"eventType", event::kInit},
                               {"load", Struct{{"name", photos.file("in", 0)}}},
                               {"OCV", Struct{{"lp0", 1}, {"trl", float{kLow}}, {"trh", float{kHigh}}}},
                               {"cjwrite", Struct{{"name", photos.file("out", 0)}, {"quality", kQuality}}}}};
        steps_.front()->dispatch(record);
    }
    ~Pipeline()
    {
        steps_.clear();
        installHandles(nullptr);
    }
    Pipeline(const Pipeline&) = delete;
    Pipeline& operator=(const Pipeline&) = delete;

    /// Processes all frames; returns the processor time.
    double run()
    {
        const double start = seconds();
        for (int i = 0; i < kFrames; ++i) {
            varitype record{Struct{{"eventType", event::kProcess}}};
            steps_.front()->dispatch(record);
            if (eventType(record) != event::kProcess) std::abort();
        }
        return seconds() - start;
    }

  private:
    const Photos& photos_;
    HandleTable table_;
    std::vector<std::unique_ptr<cChain>> steps_;
};

struct Parts
{
    double jpeg = 0, canny = 0;
};

/// Processes the same frames without steps; only decoding, detection and encoding are timed.
Parts runParts(const Photos& photos, CannyWorkspace& work)
{
    Parts parts;
    const auto width = std::size_t(photos.width()), height = std::size_t(photos.height());
    std::vector<std::uint16_t> frame(width * height);
    std::vector<std::uint8_t> rgb(3 * frame.size());
    Array memory;
    for (int i = 0; i < kFrames; ++i) {
        double start = seconds();
        const auto file = InputFile(photos.file("in", i)).readRest(kJpegBytesAlways);
        std::string reason;
        auto image = readJpeg(file, kJpegBytesAlways, std::move(memory), reason);
        parts.jpeg += seconds() - start;

        rgbToYuyv(image->bytes(), frame, width, height);
        memory = std::move(image->pixels);
        start = seconds();
        cannyFrame16(frame, width, height, SampleCoding::Yuyv16, 1, kLow, kHigh, 3, work);
        parts.canny += seconds() - start;

        yuyvToRgb(frame, rgb, width, height);
        start = seconds();
        AtomicFile out(photos.file("part", i));
        writeJpeg(out, kQuality, photos.width(), photos.height(), rgb);
        out.commit();
        parts.jpeg += seconds() - start;
    }
    return parts;
}

void edges(benchmark::State& state)
{
    const Photos photos(int(state.range(0)), int(state.range(1)));
    CannyWorkspace work;
    std::vector<double> whole, jpeg, canny;
    runParts(photos, work);
    for (auto _ : state) {
        const Silence silence;
        Pipeline pipeline(photos);
        whole.push_back(pipeline.run() / kFrames);
        const Parts parts = runParts(photos, work);
        jpeg.push_back(parts.jpeg / kFrames / whole.back());
        canny.push_back(parts.canny / kFrames / whole.back());
        state.SetIterationTime(whole.back());
    }
    state.counters["MPix/s"] = 1e-6 * photos.pixels() / bench::median(whole);
    state.counters["jpeg_%"] = 100 * bench::median(jpeg);
    state.counters["canny_%"] = 100 * bench::median(canny);
}
BENCHMARK(edges)->Args({1920, 1088})->Iterations(9)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace scansteps

BENCHMARK_MAIN();
