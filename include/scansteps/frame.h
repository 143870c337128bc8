// What steps do around their computation: FrameScope takes and checks the incoming frame, measures the time
// and forwards a copy of the record with the new handle; StepTimer only measures the time.
#pragma once

#include <cstdint>
#include <span>

#include "scansteps/chain.h"
#include "scansteps/texture.h"

namespace scansteps {

/// Measures the time from its construction to stop() or forward() and adds it to the step's time. If neither
/// is called, as after an error, no time is counted.
class StepTimer
{
  public:
    explicit StepTimer(StepBase& step) : step_(step), start_(microseconds()) {}
    void stop() { step_.time += microseconds() - start_; }
    /// Stops, then forwards the record.
    void forward(varitype& record)
    {
        stop();
        scansteps::forward(step_, record);
    }

  private:
    StepBase& step_;
    std::int64_t start_;
};

/// How an incoming frame is checked against the settings of the initialise event.
enum class FrameCheck
{
    Exact,      ///< element kind and dimensions of the input set
    Samples16,  ///< room for width x height 16-bit samples, whatever the element kind
};

/// One process event of a step. The constructor starts the timer, checks the frame that "handle" refers to
/// and swaps it with the input buffer. For a frame of the wrong size or kind, it throws a text that names
/// both shapes and swaps nothing. forward() ends the event; without it (after an error, or when the frame is
/// dropped) no time is counted.
class FrameScope
{
  public:
    /// For steps that work in place: the forwarded record refers to the input buffer.
    FrameScope(StepBase& step, varitype& params, TextureSet& in, FrameCheck check = FrameCheck::Exact);
    /// The forwarded record refers to the output buffer.
    FrameScope(StepBase& step, varitype& params, TextureSet& in, TextureSet& out,
               FrameCheck check = FrameCheck::Exact);
    FrameScope(const FrameScope&) = delete;
    FrameScope& operator=(const FrameScope&) = delete;

    /// The elements of the frame, or an empty span when T is not their type. With FrameCheck::Samples16 and
    /// std::uint16_t, the first width x height samples.
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
    /// The record to be forwarded, a copy of the incoming one, to which steps add their results.
    varitype& record() { return copy_; }

    /// Puts the output frame's handle into the copy, removes "data", stops the timer and forwards the copy.
    void forward();
    /// The same for a step that has not changed the frame: an entry "data" is still valid and is kept.
    void forwardUnchanged();

  private:
    StepTimer timer_;
    TextureSet& in_;
    TextureSet& out_;
    FrameCheck check_;
    std::size_t samples_;
    varitype copy_;
};

/// Sets "handle" to a frame that replaces the one in the record, and removes "data", which would still hold
/// the replaced frame.
void replaceFrame(varitype& record, int handle);

/// Throws a text that names both shapes when the array does not have the shape `expected`.
void checkFrame(StepBase& step, const Array& array, const FrameShape& expected);
/// The first width x height 16-bit samples of the array. Throws when it is too small.
std::span<std::uint16_t> samples16(StepBase& step, Array& array, std::uint32_t width, std::uint32_t height);

}  // namespace scansteps
