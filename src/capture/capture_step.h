// What the capture steps share: a camera that runs from initialise to flush, and one frame of it for every
// process event. How the camera is asked for is the derived step's.
#pragma once

#include <memory>
#include <string>

#include "capture/capture.h"
#include "scansteps/chain.h"
#include "scansteps/texture.h"

namespace scansteps::capture {

class CaptureStep : public CPUBase
{
  public:
    /// Delivers the newest frame; writes 1003 into the record once the limit of frames is reached.
    void process(varitype& params) override;
    /// Closes the camera, then does what every step does.
    void flush(varitype& params) override;

  protected:
    struct Limits
    {
        int frames = 0;     ///< 0: no limit
        int timeoutMs = 0;  ///< longest wait for a frame, 0: no limit
    };
    /// Opens the camera, makes the output buffer in the size that the camera chose, describes it in the
    /// record and forwards the record.
    void begin(varitype& params, const CaptureRequest& request, const Limits& limits);

  private:
    std::unique_ptr<Capture> capture_;
    std::string device_;
    TextureSet out_;
    Limits limits_;
    int delivered_ = 0;
};

}  // namespace scansteps::capture
