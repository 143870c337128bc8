// The walk through numbered image files, and delivery of their frames.
#include "images/image_source.h"

#include <utility>

#include "core/print.h"
#include "scansteps/frame.h"
#include "scansteps/numbered_name.h"
#include "scansteps/settings.h"

namespace scansteps::images {

void ImageSource::describe(varitype&) {}

void ImageSource::deliver(Array& image, Array& frame, varitype&)
{
    std::swap(frame, image);
}

void ImageSource::init(varitype& params)
{
    const Settings settings(*this, params);
    currentName_ = settings.text("load.name");
    trouble_ = {};
    held_ = load(currentName_, {}, trouble_);
    if (held_)
        loadedName_ = currentName_;
    else
        report(Trouble::SourceStopped, currentName_);
    incr_ = settings.integer("load.incr");
    count_ = settings.integer("load.count");
    one_ = settings.has("load.one");
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
    Array image = std::move(held_->pixels);
    const std::string deliveredName = loadedName_;
    ++delivered_;
    loadNext();

    varitype record = copyRecord(params);
    record.set("handle", out_.handle());
    record.set("filename", deliveredName);
    // A later file may have another size; steps that cannot handle it report an error.
    deliver(image, out_.pixels(), record);
    spare_ = std::move(image);
    timer.forward(record);
}

void ImageSource::loadNext()
{
    const bool wrapped = advanceName(currentName_, incr_);
    held_.reset();
    if (!one_) {
        held_ = load(currentName_, std::move(spare_), trouble_);
        if (held_) {
            loadedName_ = currentName_;
            print::labelled(loadedName_, " filename.c_str()\n");
        }
    }
    // A count of N delivers N + 1 frames, because the comparison follows the increment.
    const bool ended = wrapped || (count_ != 0 && count_ < delivered_);
    if (ended) held_.reset();
    if (ended || (trouble_.missing && incr_ != 0)) trouble_ = {};
}

void ImageSource::report(Trouble trouble, const std::string& file)
{
    if (trouble_.reason.empty()) return;
    // Interrupting a wait for a pipe is the host's decision and not reported.
    if (!hostInterrupted()) notifyHost(trouble, getName(), file.c_str(), trouble_.reason.c_str());
    trouble_ = {};
}

}  // namespace scansteps::images
