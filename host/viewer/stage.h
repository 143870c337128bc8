// The newest shots of every place in a chain, and which of them somebody waits for.
#pragma once

#include <array>
#include <atomic>
#include <deque>
#include <functional>
#include <mutex>

#include "shot.h"

namespace scansteps::viewer {

/// Thread-safe. Position p is what goes into step p; the last position is the end of the chain.
class Stage
{
  public:
    /// `onNew` is called after shots were published, on the publishing thread.
    Stage(std::size_t positions, std::function<void()> onNew);

    std::size_t positions() const { return wanted_.size(); }
    /// For taps: whether a shot is waited for. Costs one load.
    bool isWanted(std::size_t position) const { return wanted_[position].load(std::memory_order_relaxed); }
    void want(std::size_t position) { wanted_[position].store(true, std::memory_order_relaxed); }

    /// Gives the shots their version, which they share.
    void publish(std::size_t position, std::shared_ptr<Shot> shot, bool tuned);
    /// Null when there is none.
    ShotPtr latest(std::size_t position, bool tuned) const;
    /// Forgets the shots of the trial chain.
    void clearTuned();

  private:
    mutable std::mutex mutex_;
    std::deque<std::atomic<bool>> wanted_;
    std::array<std::vector<ShotPtr>, 2> shots_;  // live, tuned
    std::uint64_t version_ = 0;
    std::function<void()> onNew_;
};

}  // namespace scansteps::viewer
