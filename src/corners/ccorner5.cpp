// Step ccorner5: corner features of frames taken two at a time, one thread per frame.
#include <array>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <new>
#include <thread>
#include <vector>

#include "core/frame_in_record.h"
#include "core/print.h"
#include "corners/corners.h"
#include "corners/feature_record.h"
#include "grey/grey_from_frame.h"
#include "grey/sample_coding.h"
#include "regions/mser.h"
#include "scansteps/error.h"
#include "scansteps/frame.h"
#include "scansteps/handles.h"
#include "scansteps/settings.h"
#include "scansteps/step_factory.h"

namespace scansteps::corners {

class CpuCorners5 final : public CPUBase
{
  public:
    const char* getName() override { return "CpuCorners5"; }
    void init(varitype& params) override;
    void process(varitype& params) override;
    /// First processes a frame that still waits for a second one.
    void flush(varitype& params) override;

  private:
    // The data of one thread, and its results, which are read after the join.
    struct Worker
    {
        CornerDetector detector;
        grey::GreyImage grey, clamped;
        std::unique_ptr<regions::MSER> mser;  // null for images smaller than kMaxArea pixels
        std::vector<regions::Region> found;
        std::vector<CornerFeature> features;
        std::vector<std::int32_t> indices;
        std::size_t dropped = 0;
        const char* error = nullptr;
    };

    void processPending();
    void work(Worker& worker, std::span<const std::uint16_t> frame) const;
    void findRegions(Worker& worker, std::span<const std::uint16_t> frame) const;
    void report(const Worker& worker, varitype& record) const;

    FrameSize frameSize_;
    CornerSettings settings_;
    int mode_ = 0, video_ = 1, cpuBase_ = 0;  // mode and base are read, but have no effect
    grey::SampleCoding coding_ = grey::SampleCoding::Offset16;
    TextureSet frames_;
    std::array<Worker, 2> workers_;
    std::vector<varitype> pending_;
};

SCANSTEPS_FACTORY(ccorner5, CpuCorners5)

namespace {

constexpr int kMinArea = 9, kMaxArea = 1024;  // of the counted regions, in pixels

std::unique_ptr<regions::MSER> makeMser(std::int64_t pixels)
{
    if (pixels < kMaxArea || pixels > INT_MAX) return nullptr;
    const int area = int(pixels);
    return std::make_unique<regions::MSER>(1, regions::MSER::fractionOf(kMinArea, area),
                                           regions::MSER::fractionOf(kMaxArea, area), 0.2, 0.33, true);
}

// Runs work(0) and work(1), which do not throw, in parallel, or one after the other if no thread can be
// created.
template <class Work>
void runBoth(Work work)
{
    std::thread second;
    try {
        second = std::thread([&work] { work(1); });
    } catch (const std::exception&) {
    }
    work(0);
    if (second.joinable())
        second.join();
    else
        work(1);
}

}  // namespace

void CpuCorners5::init(varitype& params)
{
    const Settings settings(*this, params);
    frameSize_ = settings.frameSize();
    coding_ = grey::sampleCoding(settings);
    settings_ = CornerSettings{};
    settings_.bucketing = settings.integer("corner.bucket") == 0;
    mode_ = settings.integer("corner.mode");
    settings_.kind = settings.integer("corner.corner") == 0 ? CornerKind::minEigenvalue : CornerKind::hessian;
    settings_.density = settings.integer("corner.density");
    if (settings_.density <= 0) settings_.density = 4;
    settings_.threshold = float(settings.integer("corner.threshold"));
    settings_.lowPass1 = settings.integer("corner.lowPass1");
    settings_.lowPass2 = settings.integer("corner.lowPass2");
    settings_.fast = settings.integer("corner.fastAttr") != 0;
    cpuBase_ = settings.integer("cpu_base");
    video_ = settings.integer("corner.video");
    const std::uint32_t code = formatOrMismatch(*this, params, format::kF1x32);
    pending_.clear();
    frames_.create(frameSize_.width, frameSize_.height, 2, code);
    for (Worker& worker : workers_) {
        worker = Worker{};
        worker.mser = makeMser(std::int64_t{frameSize_.width} * frameSize_.height);
    }
    forward(*this, params);
}

void CpuCorners5::process(varitype& params)
{
    StepTimer timer(*this);
    const int handle = params["handle"].as<std::int32_t>();
    samples16(*this, pixelsOf(handle), frames_.width(), frames_.height());
    handles::swap(frames_.handle(pending_.size()), handle);
    pending_.push_back(copyRecord(params));
    if (pending_.size() == 2) {
        processPending();
        timer.stop();
        std::vector<varitype> ready;
        ready.swap(pending_);
        for (varitype& record : ready) forward(*this, record);
        return;
    }
    timer.stop();
}

void CpuCorners5::flush(varitype& params)
{
    finishThen(
        [&] {
            if (pending_.empty()) return;
            StepTimer timer(*this);
            processPending();
            timer.stop();
            std::vector<varitype> ready;
            ready.swap(pending_);
            forward(*this, ready.front());
        },
        [&] { StepBase::flush(params); });
}

// Each thread uses its own frame and worker only; records, printed output and errors are handled after the
// join. After an error both frames of the pair are dropped.
void CpuCorners5::processPending()
{
    std::vector<varitype> records;
    records.swap(pending_);
    const int count = int(records.size());
    std::array<std::span<const std::uint16_t>, 2> frames;
    for (int i = 0; i < count; ++i)
        frames[std::size_t(i)] =
            samples16(*this, frames_.pixels(std::size_t(i)), frames_.width(), frames_.height());
    const auto workOn = [&](std::size_t i) {
        Worker& worker = workers_[i];
        worker.error = nullptr;
        try {
            work(worker, frames[i]);
        } catch (const char* text) {
            worker.error = text;
        } catch (const std::bad_alloc&) {
            worker.error = "CpuCorners5: out of memory";
        }
    };
    if (count == 2)
        runBoth(workOn);
    else
        workOn(0);
    for (int i = 0; i < count; ++i) {
        report(workers_[std::size_t(i)], records[std::size_t(i)]);
        records[std::size_t(i)].set("handle", frames_.handle(std::size_t(i)));
    }
    pending_.swap(records);
}

void CpuCorners5::work(Worker& worker, std::span<const std::uint16_t> frame) const
{
    const auto toBytes = video_ != 0 ? grey::greyFromFrame : grey::stretchedGreyFromFrame;
    toBytes(frame, frameSize_.width, frameSize_.height, coding_, worker.grey);
    const std::vector<CornerFeature>& found = worker.detector.detect(worker.grey.view(), settings_);
    worker.features.clear();
    worker.indices.clear();
    for (std::size_t i = 0; i < found.size(); ++i) {
        if (!(found[i].score >= 0.0F && found[i].score < 1000.0F)) continue;
        worker.features.push_back(found[i]);
        worker.indices.push_back(std::int32_t(i));
    }
    worker.dropped = found.size() - worker.features.size();
    findRegions(worker, frame);
}

void CpuCorners5::findRegions(Worker& worker, std::span<const std::uint16_t> frame) const
{
    worker.found.clear();
    if (!worker.mser) return;
    const bool isClamped = video_ != 0;
    if (!isClamped) grey::greyFromFrame(frame, frameSize_.width, frameSize_.height, coding_, worker.clamped);
    (*worker.mser)((isClamped ? worker.grey : worker.clamped).samples, frameSize_.width, frameSize_.height,
                   worker.found);
}

void CpuCorners5::report(const Worker& worker, varitype& record) const
{
    if (worker.error != nullptr) fail(worker.error);
    const auto reportRegions = [&] { print::field(std::int64_t(worker.found.size()), " regions.size()\n"); };
    if (worker.features.empty()) {
        reportRegions();
        print::text("too small \"too small\"\n");
        fail("too small");
    }
    insertFeatures(record, worker.features, worker.indices);
    print::field(settings_.threshold, " ftrhesh\n");
    print::field(32767, " RAND_MAX\n");
    print::field(std::int64_t(worker.features.size()), " refs.size()\n");
    if (worker.dropped != 0) print::field(std::int64_t(worker.dropped), " cntErrors\n");
    reportRegions();
}

}  // namespace scansteps::corners
