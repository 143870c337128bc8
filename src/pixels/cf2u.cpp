// Step cf2u: converts 32-bit float frames to offset 16-bit frames.
#include "pixels/conversion_step.h"
#include "pixels/offset16.h"
#include "scansteps/step_factory.h"

namespace scansteps::pixels {

class CpuFloat2Short final : public ConversionStep
{
  public:
    const char* getName() override { return "CpuFloat2Short"; }
    void init(varitype& params) override;
    void process(varitype& params) override;
};

SCANSTEPS_FACTORY(cf2u, CpuFloat2Short)

void CpuFloat2Short::init(varitype& params)
{
    frameSize_ = Settings(*this, params).frameSize();
    formatOrMismatch(*this, params, format::kF1x32, format::kF1x32);
    in_.create(frameSize_.width, frameSize_.height, 1, format::kF1x32);
    out_.create(frameSize_.width, frameSize_.height, 1, format::kU1x16);
    params.set("dataFormat", "CPU::u_1x16");
    forward(*this, params);
}

void CpuFloat2Short::process(varitype& params)
{
    FrameScope frame(*this, params, in_, out_);
    floatToOffset16(frame.input<float>(), frame.output<std::uint16_t>());
    frame.forward();
}

}  // namespace scansteps::pixels
