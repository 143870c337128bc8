// Step filesaver: records the run. Every event becomes one record of the file, with its frame embedded.
#pragma once

#include <memory>

#include "scansteps/chain.h"
#include "scansteps/stream.h"

namespace scansteps::recording {

class FileSaver final : public CPUBase
{
  public:
    const char* getName() override { return "FileSaver"; }
    /// Also records events of the host's own numbering, as long as the file is open.
    void dispatch(varitype& params) override;
    void init(varitype& params) override;
    void process(varitype& params) override;
    void flush(varitype& params) override;

  private:
    /// With the first event of a run the file takes its name.
    void begin();

    std::unique_ptr<BIOfs> file_;  // from init to flush; one that failed refuses all further records
    bool hasBegun_ = false;
    bool canBegin_ = false;  // all steps were initialised, and there are frames to come
};

}  // namespace scansteps::recording
