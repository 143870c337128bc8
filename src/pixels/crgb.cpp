// Step crgb: converts YUYV16 frames to 8-bit RGB.
#include "pixels/conversion_step.h"
#include "pixels/yuyv.h"
#include "scansteps/step_factory.h"

namespace scansteps::pixels {

class CpuRGB final : public ConversionStep
{
  public:
    const char* getName() override { return "CpuRGB"; }
    void init(varitype& params) override;
    void process(varitype& params) override;
};

SCANSTEPS_FACTORY(crgb, CpuRGB)

void CpuRGB::init(varitype& params)
{
    const Settings settings(*this, params);
    frameSize_ = settings.frameSize();
    settings.text("dataFormat");
    params.remove("VideoFormat");
    if (params.has("dataFormat")) params.set("dataFormat", "CPU::u_1x8");
    in_.create(frameSize_.width, frameSize_.height, 1, format::kU1x16);
    out_.create(rgbRow(), frameSize_.height, 1, format::kU1x8);
    forward(*this, params);
}

void CpuRGB::process(varitype& params)
{
    FrameScope frame(*this, params, in_, out_);
    yuyvToRgb(frame.input<std::uint16_t>(), frame.output<std::uint8_t>(), in_.width(), in_.height());
    frame.forward();
}

}  // namespace scansteps::pixels
