// Step cdown1: 16-bit frames reduced by an integer factor.
#pragma once

#include "scansteps/chain.h"
#include "scansteps/texture.h"

namespace scansteps {

class CpuDown1 final : public CPUBase
{
  public:
    const char* getName() override { return "CpuDown1"; }
    void init(varitype& params) override;
    void process(varitype& params) override;

  private:
    int dataX_ = 0, dataY_ = 0;
    int factor_ = 1;
    bool isVideo_ = false;
    TextureSet in_, out_;
};

}  // namespace scansteps
