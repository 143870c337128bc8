// What every working step does around its computation, written once: clock on, take the frame, check it, then
// copy the record with the new handle, clock off, forward.
#pragma once

#include <cstdint>
#include <span>

#include "scansteps/chain.h"
#include "scansteps/texture.h"

namespace scansteps {

/// How an incoming frame is held against what the step was initialised for.
enum class FrameCheck
{
    Exact,      ///< element kind and dimensions of the input set
    Samples16,  ///< at least width x height 16-bit samples, whatever the format is called
};

/// One process event of a step. The constructor takes the time, reads "handle", checks the frame under it and
/// swaps it with the input buffer; a frame of another size or kind is a thrown text that names both, and
/// nothing is exchanged then. forward() ends it. Without forward() (an error, a swallowed frame) no time is
/// counted.
class FrameScope
{
  public:
    /// Works in place: the forwarded record names the input buffer.
    FrameScope(StepBase& step, varitype& params, TextureSet& in, FrameCheck check = FrameCheck::Exact);
    /// The forwarded record names the output buffer.
    FrameScope(StepBase& step, varitype& params, TextureSet& in, TextureSet& out,
               FrameCheck check = FrameCheck::Exact);
    FrameScope(const FrameScope&) = delete;
    FrameScope& operator=(const FrameScope&) = delete;

    /// The frame's elements; with FrameCheck::Samples16, T is std::uint16_t and the span holds width x height
    /// of them. Empty when T is not the element type.
    template <class T>
    std::span<T> input()
    {
        if constexpr (std::is_same_v<T, std::uint16_t>)
            if (check_ == FrameCheck::Samples16)
                return {reinterpret_cast<std::uint16_t*>(in_.pixels().data()), samples_};
        return in_.pixels().elements<T>();
    }
    template <class T>
    std::span<T> output()
    {
        return out_.writable().elements<T>();
    }
    /// The record to be forwarded, a copy of the incoming one: steps add their results to it.
    varitype& record() { return copy_; }

    /// Names the output frame in the copy, stops the clock and hands the copy on.
    void forward();
    /// The same for a step that has left the frame as it was: an entry "data" still holds it, and stays.
    void forwardUnchanged();

  private:
    StepBase& step_;
    std::int64_t start_;
    TextureSet& in_;
    TextureSet& out_;
    FrameCheck check_;
    std::size_t samples_;
    varitype copy_;
};

/// Sets "handle" to a frame that takes the place of the one in the record, and removes "data", which would
/// still hold the earlier frame.
void replaceFrame(varitype& record, int handle);

/// Throws a text that names both sizes when the array is not what `expected` says.
void checkFrame(StepBase& step, const Array& array, const FrameShape& expected);
/// Throws when the array holds fewer than width x height 16-bit samples; returns them.
std::span<std::uint16_t> samples16(StepBase& step, Array& array, std::uint32_t width, std::uint32_t height);

/// Times what a step does between construction and stop(); adds to the step's time once.
class StepTimer
{
  public:
    explicit StepTimer(StepBase& step) : step_(step), start_(microseconds()) {}
    void stop() { step_.time += microseconds() - start_; }

  private:
    StepBase& step_;
    std::int64_t start_;
};

}  // namespace scansteps
