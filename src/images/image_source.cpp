// The walk through numbered image files, and delivery of their frames.
#include "images/image_source.h"

#include <algorithm>
#include <exception>
#include <system_error>
#include <thread>
#include <utility>

#include "core/print.h"
#include "core/temporary_name.h"
#include "scansteps/frame.h"
#include "scansteps/numbered_name.h"
#include "scansteps/settings.h"

namespace scansteps::images {

namespace {

std::size_t framesAhead(const Settings& settings)
{
    const int frames = settings.integer("load.ahead");
    if (hostReadsOwnOutput()) return 0;
    if (frames >= 0) return std::size_t(frames);
    constexpr unsigned kMax = 8;
    return std::clamp(std::thread::hardware_concurrency(), 1U, kMax + 1) - 1;
}

}  // namespace

ImageSource::Stamp::Stamp(const std::string& path)
{
    std::error_code error;
    const std::filesystem::directory_entry entry(fromUtf8(path), error);
    isFile = entry.is_regular_file(error);
    if (!isFile) return;
    size = entry.file_size(error);
    time = entry.last_write_time(error);
    if (error) isFile = false;
}

void ImageSource::Upcoming::run() noexcept
{
    const std::int64_t start = microseconds();
    const CapturedOutput::Scope captured(output);
    try {
        stamp.emplace(path);
        if (!stamp->isFile) return;  // reading a pipe would take its bytes
        ImageTrouble trouble;
        image = load(path, std::move(spare), trouble);
        if (!trouble.reason.empty()) image.reset();
    } catch (...) {  // occurs again when the file is loaded at its turn
        image.reset();
    }
    time = microseconds() - start;
}

void ImageSource::describe(varitype&) {}

void ImageSource::deliver(Array& image, Array& frame, varitype&)
{
    std::swap(frame, image);
}

void ImageSource::init(varitype& params)
{
    const Settings settings(*this, params);
    upcoming_.stop();
    workerTime_ = 0;
    currentName_ = settings.text("load.name");
    trouble_ = {};
    held_ = load_(currentName_, {}, trouble_);
    if (held_)
        loadedName_ = currentName_;
    else
        report(Trouble::SourceStopped, currentName_);
    incr_ = settings.integer("load.incr");
    count_ = settings.integer("load.count");
    one_ = settings.has("load.one");
    ahead_ = framesAhead(settings);
    upcoming_.setThreads(std::min<std::size_t>(ahead_, std::max(std::thread::hardware_concurrency(), 1U)));
    delivered_ = 0;

    // Size and format come from the first file and this step; values in the record are overwritten.
    const int width = held_ ? held_->width : 0;
    const int height = held_ ? held_->height : 0;
    varitype record = copyRecord(params);
    record.set("dataX", width);
    record.set("dataY", height);
    record.set("dataFormat", settings.text("dataFormat"));
    describe(record);
    out_.create(width, height, format::kU1x8,
                held_ ? shapeOf(held_->pixels) : frameShape(format::kU1x8, 0, 0));
    forward(*this, record);
}

void ImageSource::process(varitype& params)
{
    StepTimer timer(*this);
    if (!held_) {
        params["eventType"].getv<std::int32_t>() = event::kFlush;
        print::line("error read");
        report(Trouble::SourceStopped, currentName_);
        return;
    }
    report(Trouble::FrameIncomplete, loadedName_);
    HeldImage image = std::move(*held_);
    const std::string deliveredName = loadedName_;
    ++delivered_;
    loadNext();

    varitype record = copyRecord(params);
    record.set("handle", out_.handle());
    record.set("filename", deliveredName);
    // A later file may have another size; steps that cannot handle it report an error.
    deliver(image.pixels, out_.pixels(), record);
    spare_ = std::move(image);
    timer.forward(record);
}

void ImageSource::loadNext()
{
    const bool wrapped = advanceName(currentName_, incr_);
    held_.reset();
    if (!one_) {
        held_ = loadCurrent();
        if (held_) {
            loadedName_ = currentName_;
            print::labelled(loadedName_, " filename.c_str()\n");
        }
    }
    // A count of N delivers N + 1 frames, because the comparison follows the increment.
    const bool ended = wrapped || (count_ != 0 && count_ < delivered_);
    if (ended) held_.reset();
    if (ended || (trouble_.missing && incr_ != 0)) trouble_ = {};
    if (held_) loadAhead();
}

std::optional<HeldImage> ImageSource::loadCurrent()
{
    if (!upcoming_.empty()) {
        Upcoming front = upcoming_.pop();
        workerTime_ += front.time;
        if (front.image && Stamp(currentName_) == *front.stamp) {
            front.output.replay();
            return std::move(front.image);
        }
        spare_ = front.image ? std::move(*front.image) : std::move(front.spare);
    }
    return load_(currentName_, std::move(spare_), trouble_);
}

// A file that is read repeatedly may be replaced between two frames.
void ImageSource::loadAhead()
{
    if (incr_ == 0) return;
    if (upcoming_.empty()) lastAhead_ = currentName_;
    while (upcoming_.size() < ahead_) {
        const auto number = std::int64_t(delivered_) + std::int64_t(upcoming_.size()) + 1;
        if (count_ != 0 && number > std::int64_t{count_} + 1) return;
        if (advanceName(lastAhead_, incr_)) return;
        upcoming_.push({lastAhead_, std::move(spare_), load_});
    }
}

// The default, after what only ends the files read ahead.
void ImageSource::flush(varitype& params)
{
    upcoming_.stop();
    if (workerTime_ != 0) tellWorkerTime(getName(), workerTime_);
    CPUBase::flush(params);
}

void ImageSource::report(Trouble trouble, const std::string& file)
{
    if (trouble_.reason.empty()) return;
    // Interrupting a wait for a pipe is the host's decision and not reported.
    if (!hostInterrupted()) notifyHost(trouble, getName(), file.c_str(), trouble_.reason.c_str());
    trouble_ = {};
}

}  // namespace scansteps::images
