#include "io/file_saver.h"

#include "framework/embedded_frame.h"
#include "framework/step_factory.h"
#include "scansteps/error.h"
#include "scansteps/frame.h"
#include "scansteps/settings.h"

namespace scansteps {

SCANSTEPS_STEP(FileSaver)

void FileSaver::dispatch(varitype& params)
{
    switch (eventType(params)) {
        case event::kInit:
        case event::kProcess:
        case event::kFlush:
            CPUBase::dispatch(params);
            break;
        default:
            if (file_) writeRecord(*file_, params);
            forward(*this, params);
            break;
    }
}

void FileSaver::init(varitype& params)
{
    close();  // before the new file is opened, which may have the same name
    file_ = std::make_unique<BIOfs>(Settings(*this, params).text("save.name"), BIOfs::Mode::Write);
    writeRecord(*file_, params);
    forward(*this, params);
}

void FileSaver::process(varitype& params)
{
    StepTimer timer(*this);
    if (!file_) fail("write error");
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
            writeRecord(*file, params);
            file->close();
        },
        [&] { CPUBase::flush(params); });
}

void FileSaver::close()
{
    const std::unique_ptr<BIOfs> file = std::move(file_);
    if (file) file->close();
}

}  // namespace scansteps
