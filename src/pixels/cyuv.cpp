// Step cyuv: converts 8-bit RGB frames to YUYV16.
#include "pixels/conversion_step.h"
#include "pixels/yuyv.h"
#include "scansteps/step_factory.h"

namespace scansteps::pixels {

class CpuYUV final : public ConversionStep
{
  public:
    const char* getName() override { return "CpuYUV"; }
    void init(varitype& params) override;
    void process(varitype& params) override;
};

SCANSTEPS_FACTORY(cyuv, CpuYUV)

void CpuYUV::init(varitype& params)
{
    const Settings settings(*this, params);
    frameSize_ = settings.frameSize();
    settings.text("dataFormat");
    params.set("VideoFormat", "YUYV16");
    if (params.has("dataFormat")) params.set("dataFormat", "CPU::u_1x16");
    in_.create(rgbRow(), frameSize_.height, 1, format::kU1x8);
    out_.create(frameSize_.width, frameSize_.height, 1, format::kU1x16);
    forward(*this, params);
}

void CpuYUV::process(varitype& params)
{
    FrameScope frame(*this, params, in_, out_);
    rgbToYuyv(frame.input<std::uint8_t>(), frame.output<std::uint16_t>(), out_.width(), out_.height());
    frame.forward();
}

}  // namespace scansteps::pixels
