// Step reads: replays a recording strictly: one record per event, and every record must be an event.
#include "recording/player_step.h"
#include "scansteps/settings.h"
#include "scansteps/step_factory.h"

namespace scansteps::recording {

class FileReaderS final : public RecordingPlayer
{
  public:
    const char* getName() override { return "FileReaderS"; }
    void init(varitype& params) override;

  private:
    varitype nextEvent(Array* spare) override;
};

void FileReaderS::init(varitype& params)
{
    start(Settings(*this, params), params);
}

varitype FileReaderS::nextEvent(Array* spare)
{
    return recording_.next(spare);
}

SCANSTEPS_FACTORY(reads, FileReaderS)

}  // namespace scansteps::recording
