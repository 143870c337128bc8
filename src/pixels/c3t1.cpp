// Step c3t1: the length of the colour vector of 8-bit RGB as offset 16-bit samples.
#include "core/print.h"
#include "pixels/colour_length.h"
#include "pixels/conversion_step.h"
#include "scansteps/step_factory.h"

namespace scansteps::pixels {

class CpuRGB2u16 final : public ConversionStep
{
  public:
    const char* getName() override { return "CpuRGB2u16"; }
    void init(varitype& params) override;
    void process(varitype& params) override;
};

SCANSTEPS_FACTORY(c3t1, CpuRGB2u16)

void CpuRGB2u16::init(varitype& params)
{
    const Settings settings(*this, params);
    frameSize_ = settings.frameSize();
    print::line("CpuRGB2u16::in::" + settings.text("dataFormat"));
    params.set("dataFormat", "CPU::u_1x16");
    print::line("CpuRGB2u16::out::CPU::u_1x16");
    in_.create(rgbRow(), frameSize_.height, 1, format::kU1x8);
    out_.create(frameSize_.width, frameSize_.height, 1, format::kU1x16);
    forward(*this, params);
}

void CpuRGB2u16::process(varitype& params)
{
    FrameScope frame(*this, params, in_, out_);
    const Array& view = in_.pixels();
    print::field(std::int64_t{view.dim(0)}, " view0->getX()\n");
    print::field(std::int64_t{view.dim(1)}, " view0->getY()\n");
    print::field(frameSize_.width, " W\n");
    colourLength(frame.input<std::uint8_t>(), frame.output<std::uint16_t>());
    frame.forward();
}

}  // namespace scansteps::pixels
