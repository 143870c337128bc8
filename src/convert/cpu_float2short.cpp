#include "convert/cpu_float2short.h"

#include "convert/offset16.h"
#include "framework/step_factory.h"
#include "scansteps/frame.h"
#include "scansteps/settings.h"

namespace scansteps {

SCANSTEPS_STEP(CpuFloat2Short)

void CpuFloat2Short::init(varitype& params)
{
    const Settings settings(*this, params);
    dataX_ = settings.integer("dataX");
    dataY_ = settings.integer("dataY");
    formatOrMismatch(*this, params, format::kF1x32, format::kF1x32);
    in_.create(dataX_, dataY_, 1, format::kF1x32);
    out_.create(dataX_, dataY_, 1, format::kU1x16);
    params.set("dataFormat", "CPU::u_1x16");
    forward(*this, params);
}

void CpuFloat2Short::process(varitype& params)
{
    FrameScope frame(*this, params, in_, out_);
    floatToOffset16(frame.input<float>(), frame.output<std::uint16_t>());
    frame.forward();
}

}  // namespace scansteps
