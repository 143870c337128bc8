// Step cjwrite: writes each frame as the next numbered JPEG or PPM file and passes it on.
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "core/print.h"
#include "images/image_file.h"
#include "pixels/grey_window.h"
#include "pixels/yuyv.h"
#include "scansteps/chain.h"
#include "scansteps/frame.h"
#include "scansteps/host_services.h"
#include "scansteps/numbered_name.h"
#include "scansteps/settings.h"
#include "scansteps/step_factory.h"
#include "scansteps/texture.h"

namespace scansteps::images {

class Cjwrite final : public CPUBase
{
  public:
    const char* getName() override { return "Cjwrite"; }
    void init(varitype& params) override;
    void process(varitype& params) override;

  private:
    std::span<const std::uint8_t> asRgb(Array& frame);
    void write(std::span<const std::uint8_t> rgb);

    std::string fileName_;
    int quality_ = 75;
    bool isVideo_ = false;
    std::uint32_t format_ = format::kU1x8;
    FrameSize frameSize_;
    int window_ = 256, level_ = 128;
    TextureSet frame_;
    TextureSet spare_;               // unused, but its handle stays allocated
    std::vector<std::uint8_t> rgb_;  // a frame of 16-bit samples as RGB
};

SCANSTEPS_FACTORY(cjwrite, Cjwrite)

void Cjwrite::init(varitype& params)
{
    const Settings settings(*this, params);
    fileName_ = settings.text("cjwrite.name");
    quality_ = settings.integer("cjwrite.quality");
    isVideo_ = settings.has("VideoFormat");
    settings.text("dataFormat");
    frameSize_ = settings.frameSize();
    window_ = settings.integer("viewer.window");
    level_ = settings.integer("viewer.level");
    format_ = settings.has("dataFormat") ? formatOrMismatch(*this, params, format::kF1x32) : format::kU1x8;
    checkFrameSize(frameSize_.width, frameSize_.height);
    const FrameShape shape = chainFrameShape(format_, static_cast<std::uint32_t>(frameSize_.width),
                                             static_cast<std::uint32_t>(frameSize_.height));
    frame_.create(frameSize_.width, frameSize_.height, format_, shape);
    spare_.create(frameSize_.width, frameSize_.height, format_, shape);
    forward(*this, params);
}

void Cjwrite::process(varitype& params)
{
    StepTimer timer(*this);
    Array& frame = pixelsOf(params["handle"].as<std::int32_t>());
    write(asRgb(frame));
    incrementName(fileName_);
    frame_.pixels() = frame;

    varitype record = copyRecord(params);
    record.set("handle", frame_.handle());
    timer.forward(record);
}

// Frames of 16-bit samples, regardless of the format's name, become colour if they are video frames,
// otherwise windowed grey.
std::span<const std::uint8_t> Cjwrite::asRgb(Array& frame)
{
    const auto width = static_cast<std::uint32_t>(frameSize_.width),
               height = static_cast<std::uint32_t>(frameSize_.height);
    if (format_ == format::kU1x8) {
        checkFrame(*this, frame, chainFrameShape(format_, width, height));
        return frame.elements<std::uint8_t>();
    }
    const std::span<const std::uint16_t> samples = samples16(*this, frame, width, height);
    print::labelled(fileName_, " filename.c_str()\n");
    rgb_.resize(3 * samples.size());
    if (isVideo_)
        pixels::yuyvToRgb(samples, rgb_, width, height);
    else
        pixels::greyWindow(samples, rgb_, window_, level_);
    return rgb_;
}

void Cjwrite::write(std::span<const std::uint8_t> rgb)
{
    std::string reason;
    if (!writeImage(fileName_, quality_, frameSize_.width, frameSize_.height, true, rgb, &reason))
        notifyHost(Trouble::PictureNotWritten, getName(), fileName_.c_str(), reason.c_str());
}

}  // namespace scansteps::images
