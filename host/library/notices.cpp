// Counts the notices of the steps and words them for reports.
#include "notices.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <utility>

namespace scansteps::host {

std::string FileReason::text() const
{
    return file.empty() || reason.empty() ? file + reason : file + ": " + reason;
}

std::string troubleText(const TroubleFacts& facts)
{
    const auto counted = [&](const char* what) {
        return fmt::format("{} {}{}", facts.count, what, facts.count == 1 ? "" : "s");
    };
    switch (facts.trouble) {
        case Trouble::SourceStopped:
            return "stopped at " + facts.first.text();
        case Trouble::PictureNotWritten: {
            const std::int64_t tried = std::max(facts.tried, facts.count);
            return fmt::format("{} of {} pictures written: {}, the first: {}", tried - facts.count, tried,
                               counted("failure"), facts.first.text());
        }
        case Trouble::FrameIncomplete:
            return fmt::format("{} decoded only in part, the first: {}", counted("frame"),
                               facts.first.text());
        case Trouble::RecordNotSent:
            return fmt::format("{} not sent: {}", counted("record"), facts.first.text());
        case Trouble::NoModel:
            return fmt::format(
                "no mesh and no point cloud arrived: {}",
                facts.first.file.empty() ? "nothing was written" : facts.first.file + " was not written");
        case Trouble::ModelNotWritten:
            return fmt::format("{} model{} not written: {}", facts.count, facts.count == 1 ? "" : "s",
                               facts.first.text());
        case Trouble::DepthReduced:
        case Trouble::AlphaDropped:
            return fmt::format("{}, first in {}", facts.first.reason, facts.first.file);
        default:
            return facts.first.text();
    }
}

NoticeBoard::NoticeBoard(const Pipeline& pipeline, HandleTable& table,
                         const std::atomic<std::size_t>& current, const Hooks& hooks)
    : pipeline_(pipeline),
      table_(table),
      current_(current),
      hooks_(hooks),
      workerTimes_(pipeline.steps.size()),
      skipped_(pipeline.steps.size())
{
    services_.context = this;
    services_.notify = [](void* context, const Notice& notice) {
        static_cast<NoticeBoard*>(context)->note(notice);
    };
    services_.interrupted = [](void* context) {
        const auto& asked = static_cast<NoticeBoard*>(context)->hooks_.interrupted;
        return asked && asked();
    };
    services_.wake = hooks_.wake;
    if (hooks_.keeps)
        services_.keeps = [](void* context) {
            const auto& board = *static_cast<NoticeBoard*>(context);
            return !board.stepFailed_ && board.hooks_.keeps();
        };
    services_.readsOwnOutput = hooks_.readsOwnOutput;
    services_.workerTime = [](void* context, const char* step, std::int64_t microseconds) {
        auto& board = *static_cast<NoticeBoard*>(context);
        const std::lock_guard lock(board.mutex_);
        board.workerTimes_[board.stepOf(step)] = microseconds;
    };
    installHostServices(table_, &services_);
}

NoticeBoard::~NoticeBoard()
{
    installHostServices(table_, nullptr);
}

// Of two steps of one class the working one is meant.
std::size_t NoticeBoard::stepOf(const char* className) const
{
    const auto isIt = [&](const PipelineStep& step) {
        return std::string_view(step.info->className) == className;
    };
    const std::size_t current = current_;
    const auto& steps = pipeline_.steps;
    if (current < steps.size() && isIt(steps[current])) return current;
    const auto found = std::find_if(steps.begin(), steps.end(), isIt);
    return found != steps.end() ? std::size_t(found - steps.begin()) : current;
}

// Must not throw: a notice for which there is no memory is lost.
void NoticeBoard::note(const Notice& notice)
try {
    const std::lock_guard lock(mutex_);
    if (notice.trouble == Trouble::FileFailed) {
        failed_ = {notice.file, notice.reason};
        return;
    }
    const std::size_t step = stepOf(notice.step);
    if (notice.trouble == Trouble::RecordSkipped) {
        ++skipped_[step];
        return;
    }
    const auto known = std::find_if(troubles_.begin(), troubles_.end(), [&](const TroubleFacts& facts) {
        return facts.trouble == notice.trouble && facts.step == step;
    });
    if (known != troubles_.end())
        ++known->count;
    else
        troubles_.push_back({notice.trouble, step, 1, {notice.file, notice.reason}, 0});
} catch (...) {
}

FileReason NoticeBoard::takeFailedFile()
{
    const std::lock_guard lock(mutex_);
    return std::exchange(failed_, {});
}

std::int64_t NoticeBoard::workerTime(std::size_t step) const
{
    const std::lock_guard lock(mutex_);
    return workerTimes_[step];
}

std::int64_t NoticeBoard::skipped(std::size_t step) const
{
    const std::lock_guard lock(mutex_);
    return skipped_[step];
}

std::vector<TroubleFacts> NoticeBoard::troubles() const
{
    const std::lock_guard lock(mutex_);
    return troubles_;
}

}  // namespace scansteps::host
