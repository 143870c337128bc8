#include "convert/cpu_rgb2u16.h"

#include "convert/rgb_magnitude.h"
#include "framework/print.h"
#include "framework/step_factory.h"
#include "scansteps/frame.h"
#include "scansteps/settings.h"

namespace scansteps {

SCANSTEPS_STEP(CpuRGB2u16)

void CpuRGB2u16::init(varitype& params)
{
    const Settings settings(*this, params);
    dataX_ = settings.integer("dataX");
    dataY_ = settings.integer("dataY");
    print::line("CpuRGB2u16::in::" + settings.text("dataFormat"));
    params.set("dataFormat", "CPU::u_1x16");
    print::line("CpuRGB2u16::out::CPU::u_1x16");
    in_.create(3 * std::int64_t{dataX_}, dataY_, 1, format::kU1x8);
    out_.create(dataX_, dataY_, 1, format::kU1x16);
    forward(*this, params);
}

void CpuRGB2u16::process(varitype& params)
{
    FrameScope frame(*this, params, in_, out_);
    const Array& view = in_.pixels();
    print::field(std::int64_t{view.dim(0)}, " view0->getX()\n");
    print::field(std::int64_t{view.dim(1)}, " view0->getY()\n");
    print::field(dataX_, " W\n");
    rgbToOffset16(frame.input<std::uint8_t>(), frame.output<std::uint16_t>());
    frame.forward();
}

}  // namespace scansteps
