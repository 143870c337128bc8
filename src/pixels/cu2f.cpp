// Step cu2f: converts offset 16-bit frames to 32-bit float frames.
#include "pixels/conversion_step.h"
#include "pixels/offset16.h"
#include "scansteps/step_factory.h"

namespace scansteps::pixels {

class CpuShort2Float final : public ConversionStep
{
  public:
    const char* getName() override { return "CpuShort2Float"; }
    void init(varitype& params) override;
    void process(varitype& params) override;
};

SCANSTEPS_FACTORY(cu2f, CpuShort2Float)

void CpuShort2Float::init(varitype& params)
{
    frameSize_ = Settings(*this, params).frameSize();
    formatOrMismatch(*this, params, format::kU1x16, format::kU1x16);
    in_.create(frameSize_.width, frameSize_.height, 1, format::kU1x16);
    out_.create(frameSize_.width, frameSize_.height, 1, format::kF1x32);
    params.set("dataFormat", "CPU::f_1x32");
    forward(*this, params);
}

void CpuShort2Float::process(varitype& params)
{
    FrameScope frame(*this, params, in_, out_);
    offset16ToFloat(frame.input<std::uint16_t>(), frame.output<float>());
    frame.forward();
}

}  // namespace scansteps::pixels
