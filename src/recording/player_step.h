// Base of the steps read and reads, which replay a recording. The frame of a record is moved into a buffer of
// the step without copying its pixels.
#pragma once

#include "recording/recording.h"
#include "scansteps/chain.h"
#include "scansteps/texture.h"

namespace scansteps::recording {

class RecordingPlayer : public CPUBase
{
  public:
    void process(varitype& params) override;
    void flush(varitype& params) override;

  protected:
    /// Opens the file "load.name" and forwards the host's initialise record with the recorded one merged
    /// into it.
    void start(const Settings& settings, varitype& params);
    /// The next event; its frame may take over the storage of `spare`.
    virtual varitype nextEvent(Array* spare) = 0;

    Recording recording_;

  private:
    Array moveFrame(varitype& record);

    TextureSet out_;
};

}  // namespace scansteps::recording
