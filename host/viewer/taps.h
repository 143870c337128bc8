// Looks at every record of a chain on its way and takes shots where somebody waits for one.
#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

#include "scansteps/host.h"
#include "stage.h"

namespace scansteps::viewer {

/// Used by the thread of the chain, through Hooks::observe.
class Taps
{
  public:
    explicit Taps(Stage& stage);
    void observe(std::size_t position, const varitype& record);
    /// Takes the shots of the last frame that are missing, from the buffers in which its results still lie.
    /// Where a later step has changed the frame in place, the shot before is kept. Between two events.
    void catchUp();

    /// To be called after every frame.
    void frameDone() { ++frames_; }
    std::int64_t frames() const { return frames_; }
    /// The last initialise event that came to the position; an empty record before it.
    const varitype& init(std::size_t position) const { return places_[position].init; }
    const FrameDescription& description(std::size_t position) const { return places_[position].description; }
    /// The record of the last process event there.
    const varitype& record(std::size_t position) const { return places_[position].record; }
    /// Layout of its frame; no pixels when there is none.
    const Layout& layout(std::size_t position) const { return places_[position].layout; }

  private:
    struct Place
    {
        varitype init{Struct()};
        FrameDescription description;
        varitype record{Struct()};
        Layout layout;
        const Array* frame = nullptr;  // as long as a slot of the handle table refers to it
        std::uint64_t mark = 0;        // of its pixels, when it was seen
        std::int64_t number = 0;
        std::chrono::steady_clock::time_point taken;
    };
    const Array* frameOf(const Place& place) const;
    void take(std::size_t position);

    Stage& stage_;
    std::vector<Place> places_;
    std::int64_t frames_ = 0;
    std::shared_ptr<FramePool> pool_ = std::make_shared<FramePool>();
};

}  // namespace scansteps::viewer
