// Base of the capture steps: runs a camera from initialise to flush and delivers one frame for every process
// event. Derived steps choose the camera and its settings.
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
    /// Delivers the newest frame, or writes 1003 into the record once the frame limit is reached.
    void process(varitype& params) override;
    /// Closes the camera, then forwards the event.
    void flush(varitype& params) override;

  protected:
    struct Limits
    {
        int frames = 0;     ///< maximum number of frames, 0: no limit
        int timeoutMs = 0;  ///< longest wait for a frame, 0: no limit
    };
    /// Opens the camera, creates the output buffer in the size chosen by the camera, describes it in the
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
