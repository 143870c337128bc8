// Step c2ima: keeps the last frames and puts them side by side, the newest at the left.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "scansteps/chain.h"
#include "scansteps/settings.h"
#include "scansteps/texture.h"

namespace scansteps::pixels {

class CpuCombine final : public CPUBase
{
  public:
    const char* getName() override { return "CpuCombine"; }
    void init(varitype& params) override;
    void process(varitype& params) override;

  private:
    void takeFrame(int handle);

    FrameSize frameSize_;
    int factor_ = 0;
    TextureSet history_;  // slot k holds the frame k events older than the newest
    TextureSet out_;
    std::vector<std::span<const std::uint16_t>> frames_;  // what the slots hold
};

}  // namespace scansteps::pixels
