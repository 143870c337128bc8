// Base of the steps filesaver and sender, which also take the events that other steps only forward: mismatch
// reports and events of the host's own numbering.
#pragma once

#include "scansteps/chain.h"

namespace scansteps::recording {

class EveryEventStep : public CPUBase
{
  public:
    void dispatch(varitype& params) final
    {
        switch (eventType(params)) {
            case event::kInit:
            case event::kProcess:
            case event::kFlush:
                CPUBase::dispatch(params);
                break;
            default:
                otherEvent(params);
                forward(*this, params);
                break;
        }
    }

  private:
    /// Takes an event other than initialise, process and flush, before it is forwarded.
    virtual void otherEvent(const varitype& params) = 0;
};

}  // namespace scansteps::recording
