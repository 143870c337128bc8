// Frames that Python and a chain share: Python sees the pixels under a handle without a copy for as long as
// the frame lies there, and keeps pixels of its own from then on.
#pragma once

#include <pybind11/numpy.h>

#include <memory>
#include <mutex>
#include <vector>

#include "scansteps/array.h"

namespace scansteps::python {

/// Storage of frames that Python has let go, for the next frames of the same size. Bounded; threads may share
/// it.
class FramePool
{
  public:
    /// An array of that shape with unspecified contents.
    Array take(const Array& shape);
    /// An array of whatever shape, or an empty one.
    Array takeAny();
    void give(Array&& array);

  private:
    static constexpr std::size_t kMaxFrames = 4;
    std::mutex mutex_;  // Python threads let go of frames while a chain works
    std::vector<Array> free_;
};

/// The pixels of one frame. While it is attached they are those of the chain.
class FrameLease
{
  public:
    FrameLease(Array* inChain, std::shared_ptr<FramePool> pool) : place_(inChain), pool_(std::move(pool)) {}
    FrameLease(Array&& own, std::shared_ptr<FramePool> pool) : own_(std::move(own)), pool_(std::move(pool)) {}
    ~FrameLease();
    FrameLease(const FrameLease&) = delete;
    FrameLease& operator=(const FrameLease&) = delete;

    Array& pixels() { return place_ != nullptr ? *place_ : own_; }
    bool isAttached() const { return place_ != nullptr; }
    /// Keeps the storage that Python may refer to. The chain goes on with other storage of the same contents
    /// (a copy), or, when it does not read this frame again, with storage of unspecified contents.
    void detach(bool copy);

  private:
    Array* place_ = nullptr;
    Array own_;
    std::shared_ptr<FramePool> pool_;
};

/// A numpy view of the pixels: (rows, columns), or (rows, columns, channels) where `width` pixels of several
/// elements make up a row. `width` 0: unknown, and 8-bit frames are RGB where their rows allow it.
pybind11::array frameView(const std::shared_ptr<FrameLease>& lease, std::uint32_t width);
/// The array that a numpy frame describes, (rows, columns) or (rows, columns, channels); a copy.
Array frameFrom(const pybind11::object& object);

}  // namespace scansteps::python
