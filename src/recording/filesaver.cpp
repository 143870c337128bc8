#include "recording/filesaver.h"

#include "core/frame_in_record.h"
#include "core/step_factory.h"
#include "scansteps/error.h"
#include "scansteps/frame.h"
#include "scansteps/host_services.h"
#include "scansteps/settings.h"

namespace scansteps::recording {

SCANSTEPS_FACTORY(filesaver, FileSaver)

namespace {

// False after a source that found nothing to read.
bool describesFrames(const varitype& init)
{
    const auto isPositive = [&](const char* name) {
        return init.has(name) && init[name].kind() == Kind::Int && init[name].as<std::int32_t>() > 0;
    };
    return isPositive("dataX") && isPositive("dataY");
}

}  // namespace

void FileSaver::dispatch(varitype& params)
{
    switch (eventType(params)) {
        case event::kInit:
        case event::kProcess:
        case event::kFlush:
            CPUBase::dispatch(params);
            break;
        default:
            if (file_) {
                if (eventType(params) != event::kMismatch) begin();
                writeRecord(*file_, params);
            }
            forward(*this, params);
            break;
    }
}

void FileSaver::init(varitype& params)
{
    const Settings settings(*this, params);
    const std::string path = settings.text("save.name");
    settings.frameSize();
    // Before the new file is opened, which may have the same name.
    if (const auto before = std::move(file_); before && hasBegun_) before->close();
    file_ = std::make_unique<BIOfs>(path, BIOfs::Mode::Stage);
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
    writeEvent(*file_, params);
    timer.stop();
    forward(*this, params);
}

void FileSaver::flush(varitype& params)
{
    finishThen(
        [&] {
            // The stream is gone afterwards, also when its last record or closing it is an error.
            const std::unique_ptr<BIOfs> file = std::move(file_);
            if (!file) return;
            // A run that never began does not replace the recording of one that did.
            const bool neverBegan = !hasBegun_ && (!canBegin_ || hostInterrupted());
            if (neverBegan && file->willReplace()) return;
            if (!hasBegun_) file->commit();
            writeRecord(*file, params);
            file->close();
        },
        [&] { CPUBase::flush(params); });
}

void FileSaver::begin()
{
    if (!file_) fail("write error");
    if (!hasBegun_) file_->commit();
    hasBegun_ = true;
}

}  // namespace scansteps::recording
