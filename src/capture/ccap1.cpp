// Step ccap1: frames of a chosen camera, uncompressed or motion JPEG.
#include "capture/capture_step.h"
#include "core/frame_in_record.h"
#include "core/print.h"
#include "scansteps/settings.h"
#include "scansteps/step_factory.h"

namespace scansteps::capture {

class CPUCap1 final : public CaptureStep
{
  public:
    const char* getName() override { return "CPUCap1"; }
    void init(varitype& params) override;
    void flush(varitype& params) override;
};

SCANSTEPS_FACTORY(ccap1, CPUCap1)

void CPUCap1::init(varitype& params)
{
    const Settings settings(*this, params);
    CaptureRequest request;
    const FrameSize size = settings.frameSize();
    request.width = size.width;
    request.height = size.height;
    request.jpeg = settings.integer("capture.jpeg") != 0;
    request.device = settings.text("capture.dev_name");
    const Limits limits{settings.integer("capture.count_max"), settings.integer("capture.timeout_ms")};
    begin(params, request, limits);
}

void CPUCap1::flush(varitype& params)
{
    finishThen([] { print::line("flush CPUCap1"); }, [&] { CaptureStep::flush(params); });
}

}  // namespace scansteps::capture
