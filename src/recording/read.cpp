// Step read: replays a recording. Prints its name and skips records without "eventType".
#include "core/print.h"
#include "recording/player_step.h"
#include "scansteps/settings.h"
#include "scansteps/step_factory.h"
#include "scansteps/trouble.h"

namespace scansteps::recording {

class FileReader final : public RecordingPlayer
{
  public:
    const char* getName() override { return "FileReader"; }
    void init(varitype& params) override;

  private:
    varitype nextEvent(Array* spare) override;
};

void FileReader::init(varitype& params)
{
    const Settings settings(*this, params);
    print::labelled(settings.text("load.name"), " filename\n");
    start(settings, params);
}

varitype FileReader::nextEvent(Array* spare)
{
    for (;;) {
        varitype record = recording_.next(spare);
        if (record.has("eventType")) return record;
        notifyHost(Trouble::RecordSkipped, getName(), "", "");
    }
}

SCANSTEPS_FACTORY(read, FileReader)

}  // namespace scansteps::recording
