// Step scale: multiplies 16-bit samples by a factor, in place.
#include <scansteps/frame.h>
#include <scansteps/settings.h>
#include <scansteps/step_factory.h>

#include "scale_kernel.h"

namespace {

using namespace scansteps;

class Scale final : public CPUBase
{
  public:
    const char* getName() override { return "Scale"; }

    // A run begins: settings are read and buffers made, then the next step may do the same.
    void init(varitype& params) override
    {
        const Settings settings(*this, params);
        const FrameSize size = settings.frameSize();
        factor_ = settings.real("scale.factor");
        formatOrMismatch(*this, params, format::kU1x16, format::kU1x16);
        frames_.create(size.width, size.height, 1, format::kU1x16);
        forward(*this, params);
    }

    void process(varitype& params) override
    {
        FrameScope frame(*this, params, frames_);  // swaps the frame into our buffer, starts the clock
        multiplySamples(frame.input<std::uint16_t>(), factor_);
        frame.forward();  // stops the clock, hands a copy of the record on
    }

  private:
    TextureSet frames_;
    float factor_ = 1;
};

SCANSTEPS_FACTORY(scale, Scale)

}  // namespace
