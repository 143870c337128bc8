// Step cdump: appends one row of every frame to a raw file, so that a scan line can be followed over time.
#include <memory>

#include "core/frame_in_record.h"
#include "core/incoming_frame.h"
#include "core/print.h"
#include "core/write_behind.h"
#include "scansteps/chain.h"
#include "scansteps/error.h"
#include "scansteps/frame.h"
#include "scansteps/host_services.h"
#include "scansteps/settings.h"
#include "scansteps/step_factory.h"
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
    std::unique_ptr<BIOfs> file_;  // open from init to flush
    WriteBehind behind_;           // ends before its file
};

SCANSTEPS_FACTORY(cdump, CPUDump)

void CPUDump::init(varitype& params)
{
    const Settings settings(*this, params);
    const int width = settings.frameSize().width;
    row_ = settings.integer("dump.row");
    const int views = settings.integer("numberOfViews");
    close();
    file_ = std::make_unique<BIOfs>(settings.text("dump.name"),
                                    hostStages() ? BIOfs::Mode::Stage : BIOfs::Mode::Write);
    if (!file_->isOpen()) file_->raise();
    behind_.begin(settings, isFileOrNew(file_->path()));
    formatOrMismatch(*this, params, format::kNone);
    print::field(width, " W\n");
    print::field(views, " numberOfViews\n");
    print::twice("CPUDump::init OK");
    forward(*this, params);
}

void CPUDump::process(varitype& params)
{
    StepTimer timer(*this);
    const Array& frame = incomingFrame(params);
    if (static_cast<std::uint32_t>(row_) >= frame.dim(1))
        failf("CPUDump: row %d of a frame of %u rows", row_, frame.dim(1));
    if (!file_) fail("write error");
    const std::size_t rowBytes = frame.dim(0) * elementSize(frame.kind());
    const std::size_t from = rowBytes * static_cast<std::size_t>(row_);
    if (from + rowBytes > frame.byteSize()) failf("CPUDump: the frame has no samples in row %d", row_);
    behind_.write(*file_, [&](BIO& to) { to.write(frame.data() + from, rowBytes); });
    timer.forward(params);
}

void CPUDump::flush(varitype& params)
{
    finishThen(
        [&] {
            if (!hostKeeps()) file_.reset();
            close();
        },
        [&] { CPUBase::flush(params); });
}

void CPUDump::close()
{
    const std::unique_ptr<BIOfs> file = std::move(file_);
    if (!file) return;
    behind_.finishRun(getName());
    file->close();
}

}  // namespace scansteps::recording
