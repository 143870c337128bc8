// Step cyuv: 8-bit RGB frames to YUYV16.
#pragma once

#include "scansteps/chain.h"
#include "scansteps/texture.h"

namespace scansteps {

class CpuYUV final : public CPUBase
{
  public:
    const char* getName() override { return "CpuYUV"; }
    void init(varitype& params) override;
    void process(varitype& params) override;

  private:
    int dataX_ = 0, dataY_ = 0;
    TextureSet in_, out_;
};

}  // namespace scansteps
