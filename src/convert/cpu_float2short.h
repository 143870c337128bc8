// Step cf2u: 32-bit float frames to offset 16-bit frames.
#pragma once

#include "scansteps/chain.h"
#include "scansteps/texture.h"

namespace scansteps {

class CpuFloat2Short final : public CPUBase
{
  public:
    const char* getName() override { return "CpuFloat2Short"; }
    void init(varitype& params) override;
    void process(varitype& params) override;

  private:
    int dataX_ = 0, dataY_ = 0;
    TextureSet in_, out_;
};

}  // namespace scansteps
