#include "convert/cpu_rgb.h"

#include "convert/yuyv.h"
#include "framework/step_factory.h"
#include "scansteps/frame.h"
#include "scansteps/settings.h"

namespace scansteps {

SCANSTEPS_STEP(CpuRGB)

void CpuRGB::init(varitype& params)
{
    const Settings settings(*this, params);
    dataX_ = settings.integer("dataX");
    dataY_ = settings.integer("dataY");
    params.remove("VideoFormat");
    if (params.has("dataFormat")) params.set("dataFormat", "CPU::u_1x8");
    in_.create(dataX_, dataY_, 1, format::kU1x16);
    out_.create(3 * std::int64_t{dataX_}, dataY_, 1, format::kU1x8);
    forward(*this, params);
}

void CpuRGB::process(varitype& params)
{
    FrameScope frame(*this, params, in_, out_);
    yuyvToRgb(frame.input<std::uint16_t>(), frame.output<std::uint8_t>(), in_.width(), in_.height());
    frame.forward();
}

}  // namespace scansteps
