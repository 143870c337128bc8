#include "edges/ccanny.h"

#include "core/step_factory.h"
#include "scansteps/frame.h"

namespace scansteps::edges {

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
