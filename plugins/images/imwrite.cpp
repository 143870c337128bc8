// Step imwrite: writes each frame as the next numbered image file and passes it on.
#include <scansteps/chain.h>
#include <scansteps/error.h>
#include <scansteps/frame.h>
#include <scansteps/host_services.h>
#include <scansteps/numbered_name.h>
#include <scansteps/printable.h>
#include <scansteps/settings.h>
#include <scansteps/step_factory.h>
#include <scansteps/stream.h>
#include <scansteps/texture.h>

#include <stdexcept>
#include <string>

#include "frame_samples.h"

namespace scansteps::imageio {

class Imwrite final : public CPUBase
{
  public:
    const char* getName() override { return "Imwrite"; }
    void init(varitype& params) override;
    void process(varitype& params) override;

  private:
    void chooseDepth(int wanted);
    Samples samples();
    /// Why the file was not written; empty when it was.
    std::string write(const Samples& samples) const;

    std::string name_;
    FileFormat format_ = FileFormat::Unknown;
    int bits_ = 8, quality_ = 90;
    bool isVideo_ = false;
    FrameSize size_;
    TextureSet frame_;
    FrameSamples converted_;
};

SCANSTEPS_FACTORY(imwrite, Imwrite)

void Imwrite::init(varitype& params)
{
    const Settings settings(*this, params);
    name_ = settings.text("imwrite.name");
    quality_ = settings.integer("imwrite.quality");
    isVideo_ = settings.has("VideoFormat");
    size_ = settings.frameSize();
    format_ = formatOf(name_);
    if (format_ == FileFormat::Unknown)
        failf("imwrite: %s has none of the endings .png .tif .jpg .ppm .pgm", printable(name_).c_str());
    const std::uint32_t code = formatOrMismatch(*this, params, format::kNone);
    if (code != format::kU1x8 && code != format::kU1x16) {
        frame_.reset();
        if (code != format::kNone) reportMismatch(*this, params);
        return;
    }
    checkFrameSize(size_.width, size_.height);
    frame_.create(size_.width, size_.height, code,
                  chainFrameShape(code, static_cast<std::uint32_t>(size_.width),
                                  static_cast<std::uint32_t>(size_.height)));
    chooseDepth(settings.integer("imwrite.depth"));
    forward(*this, params);
}

void Imwrite::chooseDepth(int wanted)
{
    if (wanted != 0 && wanted != 8 && wanted != 16)
        failf("imwrite: imwrite.depth = %d is none of 0, 8 and 16", wanted);
    const bool isGrey = frame_.format() == format::kU1x16 && !isVideo_;
    bits_ = wanted != 0 ? wanted : isGrey ? 16 : 8;
    if (format_ == FileFormat::Jpeg && bits_ == 16)
        failf(
            "imwrite: JPEG files have 8 bits per sample: set imwrite.depth to 8 (sample - 32768, clamped), "
            "or write .png or .tif files");
}

void Imwrite::process(varitype& params)
{
    FrameScope frame(*this, params, frame_);
    std::string reason;
    try {
        reason = write(samples());
    } catch (const std::runtime_error& error) {
        reason = error.what();
    }
    if (!reason.empty()) notifyHost(Trouble::PictureNotWritten, getName(), name_.c_str(), reason.c_str());
    incrementName(name_);
    frame.forwardUnchanged();
}

Samples Imwrite::samples()
{
    const Array& pixels = frame_.pixels();
    if (frame_.format() == format::kU1x8)
        return converted_.ofRgb(pixels.elements<std::uint8_t>(), size_.width, size_.height, bits_);
    const auto samples = pixels.elements<std::uint16_t>();
    return isVideo_ ? converted_.ofYuyv16(samples, size_.width, size_.height, bits_)
                    : converted_.ofOffset16(samples, size_.width, size_.height, bits_);
}

std::string Imwrite::write(const Samples& samples) const
{
    const auto bytes = encode(format_, samples, quality_);
    BIOfs file(name_, BIOfs::Mode::Stage);
    if (!file.isOpen()) return file.reason();
    try {
        file.write(bytes.data(), bytes.size());
        file.close();
    } catch (const char* text) {
        return file.failed() ? file.reason() : text;
    }
    return "";
}

}  // namespace scansteps::imageio
