// Step cbuff: collects a number of frames and releases them to the next step in one burst.
#pragma once

#include <vector>

#include "scansteps/chain.h"
#include "scansteps/texture.h"

namespace scansteps::flow {

class CPUDBuff final : public CPUBase
{
  public:
    const char* getName() override { return "CPUDBuff"; }
    void init(varitype& params) override;
    void process(varitype& params) override;
    void flush(varitype& params) override;

  private:
    void release();

    TextureSet slots_;
    std::vector<varitype> records_;  // of the slots filled so far
    std::size_t released_ = 0;       // how many of them have been handed on
};

}  // namespace scansteps::flow
