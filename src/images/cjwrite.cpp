// Step cjwrite: writes each frame as the next numbered JPEG or PPM file and passes it on.
#include <algorithm>
#include <cstdint>
#include <span>
#include <string>
#include <thread>
#include <utility>
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

/// How samples become RGB.
struct Look
{
    bool isRgb = false;
    bool isVideo = false;
    int window = 256, level = 128;
};

class Cjwrite final : public CPUBase
{
  public:
    const char* getName() override { return "Cjwrite"; }
    void init(varitype& params) override;
    void process(varitype& params) override;
    void flush(varitype& params) override;

  private:
    std::span<const std::uint8_t> checkedBytes(Array& frame);
    void write(Array& frame);

    std::string fileName_;
    int quality_ = 75;
    Look look_;
    std::uint32_t format_ = format::kU1x8;
    FrameSize frameSize_;
    TextureSet frame_;
    TextureSet spare_;  // unused, but its handle stays allocated
    WriteBehind behind_;
};

SCANSTEPS_FACTORY(cjwrite, Cjwrite)

namespace {

// One for each processor, at most four: then the chain's thread is the limit. A single one where a name comes
// up again so soon that two frames for the same file could be waiting.
std::size_t encoders(const std::string& name)
{
    constexpr unsigned kMax = 4;
    const auto digits = std::count_if(name.begin(), name.end(), [](char c) { return c >= '0' && c <= '9'; });
    return digits < 3 ? 1 : std::clamp(std::thread::hardware_concurrency(), 1U, kMax);
}

// 16-bit samples become colour in `rgb` if they are video frames, otherwise windowed grey. Other frames are
// RGB already.
std::span<const std::uint8_t> asRgb(std::span<const std::uint8_t> bytes, const FrameSize& size,
                                    const Look& look, std::vector<std::uint8_t>& rgb)
{
    if (look.isRgb) return bytes;
    const std::span samples(reinterpret_cast<const std::uint16_t*>(bytes.data()), bytes.size() / 2);
    rgb.resize(3 * samples.size());
    if (look.isVideo)
        pixels::yuyvToRgb(samples, rgb, std::size_t(size.width), std::size_t(size.height));
    else
        pixels::greyWindow(samples, rgb, look.window, look.level);
    return rgb;
}

}  // namespace

void Cjwrite::init(varitype& params)
{
    behind_.finish();
    const Settings settings(*this, params);
    fileName_ = settings.text("cjwrite.name");
    behind_.begin(settings, true, encoders(fileName_));
    quality_ = settings.integer("cjwrite.quality");
    look_.isVideo = settings.has("VideoFormat");
    settings.text("dataFormat");
    frameSize_ = settings.frameSize();
    look_.window = settings.integer("viewer.window");
    look_.level = settings.integer("viewer.level");
    format_ = settings.has("dataFormat") ? formatOrMismatch(*this, params, format::kF1x32) : format::kU1x8;
    look_.isRgb = format_ == format::kU1x8;
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

// What is written of the frame: RGB, or 16-bit samples regardless of the format's name.
std::span<const std::uint8_t> Cjwrite::checkedBytes(Array& frame)
{
    const auto width = static_cast<std::uint32_t>(frameSize_.width),
               height = static_cast<std::uint32_t>(frameSize_.height);
    if (format_ == format::kU1x8) {
        checkFrame(*this, frame, chainFrameShape(format_, width, height));
        return frame.elements<std::uint8_t>();
    }
    const std::span<const std::uint16_t> samples = samples16(*this, frame, width, height);
    print::labelled(fileName_, " filename.c_str()\n");
    return {reinterpret_cast<const std::uint8_t*>(samples.data()), samples.size_bytes()};
}

void Cjwrite::write(Array& frame)
{
    const auto encode = [name = fileName_, look = look_, quality = quality_, size = frameSize_,
                         step = getName()](std::span<const std::uint8_t> bytes) {
        std::vector<std::uint8_t> rgb;
        std::string reason;
        if (!writeImage(name, quality, size.width, size.height, true, asRgb(bytes, size, look, rgb), &reason))
            notifyHost(Trouble::PictureNotWritten, step, name.c_str(), reason.c_str());
    };
    const bool isDirect = behind_.isDirect();
    const std::span<const std::uint8_t> bytes = checkedBytes(frame);
    if (isDirect || !isFileOrNew(fileName_)) {
        behind_.finish();
        return encode(bytes);
    }
    WriteBehind::Buffer buffer = behind_.takeBuffer();
    buffer.assign(bytes.begin(), bytes.end());
    behind_.push(std::move(buffer), encode);
}

void Cjwrite::flush(varitype& params)
{
    finishThen([&] { behind_.finishRun(getName()); }, [&] { CPUBase::flush(params); });
}

}  // namespace scansteps::images
