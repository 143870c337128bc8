// Step cu2f: offset 16-bit frames to 32-bit float frames.
#pragma once

#include "scansteps/chain.h"
#include "scansteps/texture.h"

namespace scansteps {

class CpuShort2Float final : public CPUBase
{
  public:
    const char* getName() override { return "CpuShort2Float"; }
    void init(varitype& params) override;
    void process(varitype& params) override;

  private:
    int dataX_ = 0, dataY_ = 0;
    TextureSet in_, out_;
};

}  // namespace scansteps
