// Keeps one shot a position and chain; older ones end with their last reader.
#include "stage.h"

#include <utility>

namespace scansteps::viewer {

Stage::Stage(std::size_t positions, std::function<void()> onNew)
    : wanted_(positions), onNew_(std::move(onNew))
{
    for (auto& shots : shots_) shots.resize(positions);
}

void Stage::publish(std::size_t position, std::shared_ptr<Shot> shot, bool tuned)
{
    ShotPtr before;  // ends outside the lock
    {
        const std::lock_guard lock(mutex_);
        shot->version = ++version_;
        before = std::exchange(shots_[tuned ? 1 : 0][position], std::move(shot));
        if (!tuned) wanted_[position].store(false, std::memory_order_relaxed);
    }
    onNew_();
}

ShotPtr Stage::latest(std::size_t position, bool tuned) const
{
    const std::lock_guard lock(mutex_);
    return shots_[tuned ? 1 : 0][position];
}

void Stage::clearTuned()
{
    const std::lock_guard lock(mutex_);
    for (ShotPtr& shot : shots_[1]) shot.reset();
}

}  // namespace scansteps::viewer
