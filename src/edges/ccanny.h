// Step ccanny: replaces every 16-bit frame by its Canny edges.
#pragma once

#include "edges/canny_settings.h"
#include "scansteps/chain.h"
#include "scansteps/texture.h"

namespace scansteps::edges {

class CpuCanny final : public CPUBase
{
  public:
    const char* getName() override { return "CpuCanny"; }
    void init(varitype& params) override;
    void process(varitype& params) override;

  private:
    CannySettings settings_;
    CannyWorkspace work_;
    TextureSet in_;
    TextureSet spare_;  // kept for hosts that count on two handles a step
};

}  // namespace scansteps::edges
