// Step filesaver: records the run. Every event becomes one record of the file, with the frame embedded.
#include <memory>

#include "core/frame_in_record.h"
#include "core/write_behind.h"
#include "recording/every_event_step.h"
#include "scansteps/error.h"
#include "scansteps/frame.h"
#include "scansteps/host_services.h"
#include "scansteps/settings.h"
#include "scansteps/step_factory.h"
#include "scansteps/stream.h"

namespace scansteps::recording {

class FileSaver final : public EveryEventStep
{
  public:
    const char* getName() override { return "FileSaver"; }
    void init(varitype& params) override;
    void process(varitype& params) override;
    void flush(varitype& params) override;

  private:
    void otherEvent(const varitype& params) override;
    /// Called for the first event after initialise, when the file takes its name.
    void begin();

    std::unique_ptr<BIOfs> file_;  // open from init to flush; after a failed write, all further ones fail
    bool hasBegun_ = false;
    bool canBegin_ = false;  // initialise succeeded in all steps and describes frames
    WriteBehind behind_;     // ends before its file
};

SCANSTEPS_FACTORY(filesaver, FileSaver)

namespace {

// False if the source has found nothing to read.
bool describesFrames(const varitype& init)
{
    const auto isPositive = [&](const char* name) {
        return init.has(name) && init[name].kind() == Kind::Int && init[name].as<std::int32_t>() > 0;
    };
    return isPositive("dataX") && isPositive("dataY");
}

}  // namespace

void FileSaver::otherEvent(const varitype& params)
{
    if (!file_) return;
    if (eventType(params) != event::kMismatch) begin();
    behind_.write(*file_, [&](BIO& to) { writeRecord(to, params); });
}

void FileSaver::init(varitype& params)
{
    const Settings settings(*this, params);
    const std::string path = settings.text("save.name");
    settings.frameSize();
    behind_.finish();
    // Closed before the new file is opened, because both may have the same name.
    if (const auto before = std::move(file_); before && hasBegun_) before->close();
    file_ = std::make_unique<BIOfs>(path, BIOfs::Mode::Stage);
    behind_.begin(settings, !file_->temporary().empty() || isFileOrNew(path));
    hasBegun_ = false;
    canBegin_ = false;
    writeRecord(*file_, params);
    const bool framesToCome = describesFrames(params);
    forward(*this, params);
    canBegin_ = framesToCome && eventType(params) == event::kInit;
}

void FileSaver::process(varitype& params)
{
    StepTimer timer(*this);
    begin();
    behind_.write(*file_, [&](BIO& to) { writeEvent(to, params); });
    timer.forward(params);
}

void FileSaver::flush(varitype& params)
{
    finishThen(
        [&] {
            // Closed in any case, even if writing the last record fails.
            const std::unique_ptr<BIOfs> file = std::move(file_);
            if (!file) return;
            behind_.finishRun(getName());
            // A run that never began must not replace an existing recording.
            const bool neverBegan = !hasBegun_ && (!canBegin_ || hostInterrupted());
            if ((neverBegan && file->willReplace()) || !hostKeeps()) return;
            if (!hasBegun_ && !hostStages()) file->commit();
            writeRecord(*file, params);
            file->close();
        },
        [&] { CPUBase::flush(params); });
}

void FileSaver::begin()
{
    if (!file_) fail("write error");
    if (!hasBegun_ && !hostStages()) file_->commit();
    hasBegun_ = true;
}

}  // namespace scansteps::recording
