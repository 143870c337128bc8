// Step ccap: uncompressed frames of the first camera.
#include "capture/capture_step.h"
#include "scansteps/settings.h"
#include "scansteps/step_factory.h"

namespace scansteps::capture {

class CPUCap final : public CaptureStep
{
  public:
    const char* getName() override { return "CPUCap"; }
    void init(varitype& params) override
    {
        const Settings settings(*this, params);
        CaptureRequest request;
        const FrameSize size = settings.frameSize();
        request.width = size.width;
        request.height = size.height;
        begin(params, request, {});
    }
};

SCANSTEPS_FACTORY(ccap, CPUCap)

}  // namespace scansteps::capture
