// Step ccanny: replaces every 16-bit frame by its Canny edges.
#include "edges/canny_settings.h"
#include "scansteps/frame.h"
#include "scansteps/step_factory.h"

namespace scansteps::edges {

class CpuCanny final : public CPUBase
{
  public:
    const char* getName() override { return "CpuCanny"; }
    void init(varitype& params) override;
    void process(varitype& params) override;

  private:
    CannySettings settings_;
    CannyWorkspace work_;
    TextureSet in_;
    TextureSet spare_;  // for hosts that expect two handles per step
};

SCANSTEPS_FACTORY(ccanny, CpuCanny)

void CpuCanny::init(varitype& params)
{
    settings_ = CannySettings::read(Settings(*this, params));
    const std::uint32_t code = formatOrMismatch(*this, params, format::kF1x32);
    in_.create(settings_.frameSize.width, settings_.frameSize.height, 1, code);
    spare_.create(settings_.frameSize.width, settings_.frameSize.height, 1, code);
    forward(*this, params);
}

void CpuCanny::process(varitype& params)
{
    FrameScope frame(*this, params, in_, FrameCheck::Samples16);
    settings_.print();
    cannyFrame16(frame.input<std::uint16_t>(), in_.width(), in_.height(), settings_.coding,
                 settings_.lowPasses, double{settings_.low}, double{settings_.high}, settings_.order, work_);
    print::field(std::int64_t{in_.width()}, " a.getX()\n");
    print::field(std::int64_t{in_.height()}, " a.getY()\n");
    frame.forward();
}

}  // namespace scansteps::edges
