// Collects what steps report besides their errors: problems that they survive, counted per step, and file and
// reason of the error that they are about to raise.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "scansteps/host.h"
#include "scansteps/host_services.h"

namespace scansteps::host {

/// Installs the host's services for the steps while it exists.
class NoticeBoard
{
  public:
    /// `current` is the index of the step that works now.
    NoticeBoard(const Pipeline& pipeline, HandleTable& table, const std::atomic<std::size_t>& current,
                const Hooks& hooks);
    ~NoticeBoard();
    NoticeBoard(const NoticeBoard&) = delete;
    NoticeBoard& operator=(const NoticeBoard&) = delete;

    /// From now on staged recordings are dropped.
    void noteStepFailed() { stepFailed_ = true; }
    /// Returns and clears the details of the error that was just raised.
    FileReason takeFailedFile();
    std::vector<TroubleFacts> troubles() const;
    /// Microseconds that threads of the step worked, as of its last flush.
    std::int64_t workerTime(std::size_t step) const;
    /// Records that the step left out.
    std::int64_t skipped(std::size_t step) const;

  private:
    void note(const Notice& notice);
    std::size_t stepOf(const char* className) const;

    const Pipeline& pipeline_;
    HandleTable& table_;
    const std::atomic<std::size_t>& current_;
    const Hooks& hooks_;
    HostServices services_;
    mutable std::mutex mutex_;  // steps may have threads of their own
    bool stepFailed_ = false;
    FileReason failed_;
    std::vector<TroubleFacts> troubles_;
    std::vector<std::int64_t> workerTimes_;  // of each step
    std::vector<std::int64_t> skipped_;
};

}  // namespace scansteps::host
