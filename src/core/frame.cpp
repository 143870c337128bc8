// Checks of incoming frames, and the exchange of frames and handles around a step's computation.
#include "scansteps/frame.h"

#include "scansteps/error.h"
#include "scansteps/handles.h"

namespace scansteps {

void checkFrame(StepBase& step, const Array& array, const FrameShape& expected)
{
    if (expected.fits(array)) return;
    failf("%s: the frame is %u x %u x %u %s, initialised for %u x %u x %u %s", step.getName(), array.dim(0),
          array.dim(1), array.dim(2), kindTypeName(array.kind()), expected.rowLength, expected.rows,
          expected.planes, kindTypeName(expected.kind));
}

std::span<std::uint16_t> samples16(StepBase& step, Array& array, std::uint32_t width, std::uint32_t height)
{
    const std::size_t samples = std::size_t{width} * height;
    if (array.byteSize() < 2 * samples || (samples != 0 && array.data() == nullptr))
        failf("%s: the frame is %u x %u x %u %s, too small for %u x %u 16-bit samples", step.getName(),
              array.dim(0), array.dim(1), array.dim(2), kindTypeName(array.kind()), width, height);
    return {reinterpret_cast<std::uint16_t*>(array.data()), samples};
}

FrameScope::FrameScope(StepBase& step, varitype& params, TextureSet& in, FrameCheck check)
    : FrameScope(step, params, in, in, check)
{
}

FrameScope::FrameScope(StepBase& step, varitype& params, TextureSet& in, TextureSet& out, FrameCheck check)
    : timer_(step),
      in_(in),
      out_(out),
      check_(check),
      samples_(std::size_t{in.width()} * in.height()),
      copy_(copyRecord(params))
{
    const int handle = params["handle"].as<std::int32_t>();
    Array& frame = pixelsOf(handle);
    if (check == FrameCheck::Exact)
        checkFrame(step, frame, in.shape());
    else
        samples16(step, frame, in.width(), in.height());
    handles::swap(in.handle(), handle);
}

void replaceFrame(varitype& record, int handle)
{
    record["handle"].getv<std::int32_t>() = handle;
    record.remove("data");
}

void FrameScope::forward()
{
    replaceFrame(copy_, out_.handle());
    timer_.forward(copy_);
}

void FrameScope::forwardUnchanged()
{
    copy_["handle"].getv<std::int32_t>() = out_.handle();
    timer_.forward(copy_);
}

}  // namespace scansteps
