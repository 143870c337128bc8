// Reading of recordings, at a record's turn or ahead of it.
#include "recording/recording.h"

#include <cstring>
#include <filesystem>
#include <system_error>
#include <thread>
#include <utility>

#include "core/captured_output.h"
#include "core/temporary_name.h"
#include "scansteps/error.h"
#include "scansteps/host_services.h"

namespace scansteps::recording {

namespace {

std::size_t recordsAhead(const Settings& settings, const std::string& path)
{
    const int records = settings.integer("load.ahead");
    std::error_code error;
    if (hostReadsOwnOutput() || !std::filesystem::is_regular_file(fromUtf8(path), error)) return 0;
    if (records >= 0) return std::size_t(records);
    return std::thread::hardware_concurrency() > 1 ? 1 : 0;
}

}  // namespace

void Recording::Upcoming::run() noexcept
{
    if (*hasFailed) return;
    const std::int64_t start = microseconds();
    CapturedOutput dropped;
    const CapturedOutput::Scope captured(dropped);
    try {
        record = readRecord(*file, {}, &spare);
        end = file->position();
    } catch (...) {  // occurs again when the record is read at its turn
        *hasFailed = true;
    }
    time = microseconds() - start;
}

void Recording::open(const std::string& path, const Settings& settings)
{
    upcoming_.stop();
    ahead_ = recordsAhead(settings, path);
    file_ = std::make_unique<BIOfs>(path, BIOfs::Mode::Read);
    position_ = 0;
    workerTime_ = 0;
    isFirst_ = true;
    hasFailed_ = false;
}

varitype Recording::next(Array* spare)
{
    if (!isOpen()) refuse("error file read");
    if (!upcoming_.empty()) {
        Upcoming front = upcoming_.pop();
        workerTime_ += front.time;
        if (front.spare.data() != nullptr) spare_ = std::move(front.spare);
        if (front.record) {
            position_ = front.end;
            return std::move(*front.record);
        }
        rewind();
    }
    position_ = file_->position();
    try {
        varitype record = readRecord(*file_, {}, spare);
        position_ = file_->position();
        return record;
    } catch (const char* text) {
        if (std::strcmp(text, "Read Error") == 0) tell("damaged record at byte " + std::to_string(position_));
        throw;
    }
}

void Recording::readAhead(Array spare)
{
    if (spare.data() != nullptr) spare_ = std::move(spare);
    if (std::exchange(isFirst_, false)) return;
    while (upcoming_.size() < ahead_) upcoming_.push({file_.get(), &hasFailed_, std::move(spare_)});
}

void Recording::finishRun(const char* step)
{
    if (!upcoming_.empty()) rewind();
    spare_ = {};
    if (workerTime_ != 0) tellWorkerTime(step, workerTime_);
}

void Recording::rewind()
{
    upcoming_.stop();
    hasFailed_ = false;
    file_->seek(position_);
}

void Recording::refuse(const char* text) const
{
    if (file_) tell(file_->reason());
    fail(text);
}

void Recording::tell(const std::string& reason) const
{
    notifyHost(Trouble::FileFailed, "", file_->path().c_str(), reason.c_str());
}

}  // namespace scansteps::recording
