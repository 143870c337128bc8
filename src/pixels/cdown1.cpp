// Step cdown1: reduces 16-bit frames by an integer factor.
#include "pixels/conversion_step.h"
#include "pixels/reduce16.h"
#include "scansteps/error.h"
#include "scansteps/step_factory.h"

namespace scansteps::pixels {

class CpuDown1 final : public ConversionStep
{
  public:
    const char* getName() override { return "CpuDown1"; }
    void init(varitype& params) override;
    void process(varitype& params) override;

  private:
    int factor_ = 1;
    bool isVideo_ = false;
};

SCANSTEPS_FACTORY(cdown1, CpuDown1)

void CpuDown1::init(varitype& params)
{
    const Settings settings(*this, params);
    frameSize_ = settings.frameSize();
    factor_ = settings.integer("down1.factor");
    isVideo_ = settings.has("VideoFormat");
    const std::uint32_t code = formatOrMismatch(*this, params, format::kF1x32);
    in_.create(frameSize_.width, frameSize_.height, 1, code);
    out_.create(frameSize_.width / factor_, frameSize_.height / factor_, 1, code);
    // Later steps see the reduced size; the host's record keeps the full one.
    varitype reduced = copyRecord(params);
    reduced.set("dataX", frameSize_.width / factor_);
    reduced.set("dataY", frameSize_.height / factor_);
    forward(*this, reduced);
}

void CpuDown1::process(varitype& params)
{
    if (in_.format() == format::kU1x8)  // 8-bit frames would not fit the reduced buffer
        failf("%s: 8-bit frames cannot be reduced, only 16-bit ones: put cyuv before", getName());
    FrameScope frame(*this, params, in_, out_, FrameCheck::Samples16);
    const auto output = samples16(*this, out_.writable(), out_.width(), out_.height());
    const auto reduce = isVideo_ ? reduceYuyv16 : reduceOffset16;
    reduce(frame.input<std::uint16_t>(), output, in_.width(), in_.height(), factor_);
    frame.forward();
}

}  // namespace scansteps::pixels
