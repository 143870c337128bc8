// Opens a camera or test device, and connects it with its queue and converter.
#include "capture/capture.h"

#include "core/print.h"
#include "scansteps/error.h"
#include "scansteps/texture.h"

namespace scansteps::capture {

namespace {

std::unique_ptr<CaptureDevice> openDevice(const CaptureRequest& request)
{
    checkFrameSize(request.width, request.height);
    return isTestDevice(request.device) ? openTestDevice(request) : openCamera(request);
}

}  // namespace

Capture::Capture(const CaptureRequest& request) : device_(openDevice(request))
{
    format_ = device_->format();
    if (format_.width < 1 || format_.height < 1)
        failf("capture: the device delivers frames of %d x %d", format_.width, format_.height);
    checkFrameSize(format_.width, format_.height);
    queue_.open(format_);
    converter_.open(format_);
    device_->start(queue_);
    print::line("init OK!!!!!!!!!!!!!!!!!!!!11");
}

std::string Capture::next(std::span<std::uint16_t> yuyv, int timeoutMs)
{
    return converter_.convert(queue_.take(timeoutMs), yuyv);
}

#if !defined(__linux__) && !defined(_WIN32)
std::unique_ptr<CaptureDevice> openCamera(const CaptureRequest&)
{
    fail("no camera interface on this system; only the devices \"test:...\" and \"file:...\" exist");
}
#endif

}  // namespace scansteps::capture
