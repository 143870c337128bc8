// Step crgb: YUYV16 frames to 8-bit RGB.
#pragma once

#include "scansteps/chain.h"
#include "scansteps/texture.h"

namespace scansteps {

class CpuRGB final : public CPUBase
{
  public:
    const char* getName() override { return "CpuRGB"; }
    void init(varitype& params) override;
    void process(varitype& params) override;

  private:
    int dataX_ = 0, dataY_ = 0;
    TextureSet in_, out_;
};

}  // namespace scansteps
