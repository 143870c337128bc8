// Step cjwrite: writes each frame as the next numbered JPEG or PPM file and passes it on.
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "core/frame_in_record.h"
#include "core/print.h"
#include "core/write_behind.h"
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
    void flush(varitype& params) override;

  private:
    std::span<const std::uint8_t> asRgb(Array& frame, std::vector<std::uint8_t>& converted);
    void write(Array& frame);

    std::string fileName_;
    int quality_ = 75;
    bool isVideo_ = false;
    std::uint32_t format_ = format::kU1x8;
    FrameSize frameSize_;
    int window_ = 256, level_ = 128;
    TextureSet frame_;
    TextureSet spare_;  // unused, but its handle stays allocated
    WriteBehind behind_;
};

SCANSTEPS_FACTORY(cjwrite, Cjwrite)

void Cjwrite::init(varitype& params)
{
    behind_.finish();
    const Settings settings(*this, params);
    behind_.begin(settings, true);
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
    write(frame);
    incrementName(fileName_);
    frame_.pixels() = frame;

    varitype record = copyRecord(params);
    record.set("handle", frame_.handle());
    timer.forward(record);
}

// Frames of 16-bit samples, regardless of the format's name, become colour if they are video frames,
// otherwise windowed grey, in `converted`. Other frames are taken as they are.
std::span<const std::uint8_t> Cjwrite::asRgb(Array& frame, std::vector<std::uint8_t>& converted)
{
    const auto width = static_cast<std::uint32_t>(frameSize_.width),
               height = static_cast<std::uint32_t>(frameSize_.height);
    if (format_ == format::kU1x8) {
        checkFrame(*this, frame, chainFrameShape(format_, width, height));
        return frame.elements<std::uint8_t>();
    }
    const std::span<const std::uint16_t> samples = samples16(*this, frame, width, height);
    print::labelled(fileName_, " filename.c_str()\n");
    converted.resize(3 * samples.size());
    if (isVideo_)
        pixels::yuyvToRgb(samples, converted, width, height);
    else
        pixels::greyWindow(samples, converted, window_, level_);
    return converted;
}

void Cjwrite::write(Array& frame)
{
    const auto writeRgb = [name = fileName_, quality = quality_, size = frameSize_,
                           step = getName()](std::span<const std::uint8_t> rgb) {
        std::string reason;
        if (!writeImage(name, quality, size.width, size.height, true, rgb, &reason))
            notifyHost(Trouble::PictureNotWritten, step, name.c_str(), reason.c_str());
    };
    const bool isDirect = behind_.isDirect();
    std::vector<std::uint8_t> buffer = behind_.takeBuffer();
    const std::span<const std::uint8_t> rgb = asRgb(frame, buffer);
    if (isDirect || !isFileOrNew(fileName_)) {
        behind_.finish();
        writeRgb(rgb);
        behind_.giveBuffer(std::move(buffer));
        return;
    }
    if (rgb.data() != buffer.data()) buffer.assign(rgb.begin(), rgb.end());
    behind_.push(std::move(buffer), writeRgb);
}

void Cjwrite::flush(varitype& params)
{
    finishThen([&] { behind_.finishRun(getName()); }, [&] { CPUBase::flush(params); });
}

}  // namespace scansteps::images
