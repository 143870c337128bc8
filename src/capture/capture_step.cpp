// Opening and closing of the camera, and delivery of its frames.
#include "capture/capture_step.h"

#include "core/frame_in_record.h"
#include "core/print.h"
#include "scansteps/error.h"
#include "scansteps/frame.h"
#include "scansteps/host_services.h"

namespace scansteps::capture {

void CaptureStep::begin(varitype& params, const CaptureRequest& request, const Limits& limits)
{
    capture_.reset();  // a camera can be open only once
    limits_ = limits;
    delivered_ = 0;
    capture_ = std::make_unique<Capture>(request);
    device_ = request.device;
    const CaptureFormat& format = capture_->format();
    out_.create(format.width, format.height, 1, format::kU1x16);
    params.set("dataX", format.width);
    params.set("dataY", format.height);
    params.set("dataFormat", "CPU::u_1x16");
    params.set("VideoFormat", "YUYV16");
    forward(*this, params);
}

void CaptureStep::process(varitype& params)
{
    StepTimer timer(*this);
    if (!capture_) failf("%s: the camera is not open", getName());
    if (limits_.frames > 0 && delivered_ >= limits_.frames) {
        params["eventType"].getv<std::int32_t>() = event::kFlush;
        return;
    }
    const std::string damage = capture_->next(out_.writable().elements<std::uint16_t>(), limits_.timeoutMs);
    if (!damage.empty()) notifyHost(Trouble::FrameIncomplete, getName(), device_.c_str(), damage.c_str());
    ++delivered_;
    varitype record = copyRecord(params);
    record.set("handle", out_.handle());
    timer.forward(record);
}

void CaptureStep::flush(varitype& params)
{
    finishThen(
        [&] {
            if (!capture_) return;
            const auto dropped = static_cast<std::int64_t>(capture_->queue().shortFrames());
            capture_.reset();
            if (dropped != 0) print::field(dropped, " frames dropped, too short\n");
        },
        [&] { CPUBase::flush(params); });
}

}  // namespace scansteps::capture
