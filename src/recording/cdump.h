// Step cdump: appends one row of every frame to a raw file, so that a scan line can be followed over time.
#pragma once

#include <memory>

#include "scansteps/chain.h"
#include "scansteps/stream.h"

namespace scansteps::recording {

class CPUDump final : public CPUBase
{
  public:
    const char* getName() override { return "CPUDump"; }
    void init(varitype& params) override;
    void process(varitype& params) override;
    void flush(varitype& params) override;

  private:
    void close();

    int row_ = 0;
    std::unique_ptr<BIOfs> file_;  // from init to flush
};

}  // namespace scansteps::recording
