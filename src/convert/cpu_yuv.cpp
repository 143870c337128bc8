#include "convert/cpu_yuv.h"

#include "convert/yuyv.h"
#include "framework/step_factory.h"
#include "scansteps/frame.h"
#include "scansteps/settings.h"

namespace scansteps {

SCANSTEPS_STEP(CpuYUV)

void CpuYUV::init(varitype& params)
{
    const Settings settings(*this, params);
    dataX_ = settings.integer("dataX");
    dataY_ = settings.integer("dataY");
    params.set("VideoFormat", "YUYV16");
    if (params.has("dataFormat")) params.set("dataFormat", "CPU::u_1x16");
    in_.create(3 * std::int64_t{dataX_}, dataY_, 1, format::kU1x8);
    out_.create(dataX_, dataY_, 1, format::kU1x16);
    forward(*this, params);
}

void CpuYUV::process(varitype& params)
{
    FrameScope frame(*this, params, in_, out_);
    rgbToYuyv(frame.input<std::uint8_t>(), frame.output<std::uint16_t>(), out_.width(), out_.height());
    frame.forward();
}

}  // namespace scansteps
