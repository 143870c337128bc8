#include "convert/cpu_short2float.h"

#include "convert/offset16.h"
#include "framework/step_factory.h"
#include "scansteps/frame.h"
#include "scansteps/settings.h"

namespace scansteps {

SCANSTEPS_STEP(CpuShort2Float)

void CpuShort2Float::init(varitype& params)
{
    const Settings settings(*this, params);
    dataX_ = settings.integer("dataX");
    dataY_ = settings.integer("dataY");
    formatOrMismatch(*this, params, format::kU1x16, format::kU1x16);
    in_.create(dataX_, dataY_, 1, format::kU1x16);
    out_.create(dataX_, dataY_, 1, format::kF1x32);
    params.set("dataFormat", "CPU::f_1x32");
    forward(*this, params);
}

void CpuShort2Float::process(varitype& params)
{
    FrameScope frame(*this, params, in_, out_);
    offset16ToFloat(frame.input<std::uint16_t>(), frame.output<float>());
    frame.forward();
}

}  // namespace scansteps
