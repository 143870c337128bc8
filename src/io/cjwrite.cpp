#include "io/cjwrite.h"

#include "convert/grey_window.h"
#include "convert/yuyv.h"
#include "framework/print.h"
#include "framework/step_factory.h"
#include "io/image_file.h"
#include "io/numbered_name.h"
#include "scansteps/frame.h"
#include "scansteps/settings.h"

namespace scansteps {

SCANSTEPS_STEP(Cjwrite)

void Cjwrite::init(varitype& params)
{
    const Settings settings(*this, params);
    fileName_ = settings.text("cjwrite.name");
    quality_ = settings.integer("cjwrite.quality");
    isVideo_ = settings.has("VideoFormat");
    format_ = formatCode(settings.text("dataFormat"));
    width_ = settings.integer("dataX");
    height_ = settings.integer("dataY");
    window_ = settings.integer("viewer.window");
    level_ = settings.integer("viewer.level");
    checkFrameSize(width_, height_);
    FrameShape shape =
        frameShape(format_, static_cast<std::uint32_t>(width_), static_cast<std::uint32_t>(height_));
    if (shape.kind == Kind::Empty) {  // no frame can come in such a format
        reportMismatch(*this, params);
        return;
    }
    if (format_ == format::kU1x8) shape.rowLength *= 3;
    frame_.create(width_, height_, format_, shape);
    spare_.create(width_, height_, format_, shape);
    forward(*this, params);
}

void Cjwrite::process(varitype& params)
{
    StepTimer timer(*this);
    Array& frame = frame_.pixels();
    frame = pixelsOf(params["handle"].as<std::int32_t>());
    if (format_ == format::kU1x8)
        writeRgb(frame);
    else
        writeSamples(frame);
    incrementName(fileName_);

    varitype record = copyRecord(params);
    record.set("handle", frame_.handle());
    timer.stop();
    forward(*this, record);
}

void Cjwrite::writeRgb(const Array& frame)
{
    checkFrame(*this, frame, frame_.shape());
    writeImage(fileName_, quality_, width_, height_, true, frame.elements<std::uint8_t>());
}

// 16-bit samples, whatever the format calls them: colour of video frames, else grey through the window.
void Cjwrite::writeSamples(Array& frame)
{
    const auto width = static_cast<std::uint32_t>(width_);
    const auto height = static_cast<std::uint32_t>(height_);
    const std::span<const std::uint16_t> samples = samples16(*this, frame, width, height);
    rgb_.resize(samples.size() * 3);
    if (isVideo_)
        yuyvToRgb(samples, rgb_, width, height);
    else
        greyWindow(samples, rgb_, window_, level_);
    print::labelled(fileName_, " filename.c_str()\n");
    writeImage(fileName_, quality_, width_, height_, true, rgb_);
}

}  // namespace scansteps
