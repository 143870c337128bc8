// Step c3t1: the length of the colour vector of 8-bit RGB as offset 16-bit samples.
#pragma once

#include "scansteps/chain.h"
#include "scansteps/texture.h"

namespace scansteps {

class CpuRGB2u16 final : public CPUBase
{
  public:
    const char* getName() override { return "CpuRGB2u16"; }
    void init(varitype& params) override;
    void process(varitype& params) override;

  private:
    int dataX_ = 0, dataY_ = 0;
    TextureSet in_, out_;
};

}  // namespace scansteps
