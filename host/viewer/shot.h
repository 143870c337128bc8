// What a tap took: the record and the frame that went from one step to the next, copied, so that other
// threads can look at them while the chain goes on.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "scansteps/array.h"
#include "scansteps/record.h"

namespace scansteps::viewer {

/// How the elements of a frame are to be read.
enum class Samples
{
    Grey8,
    Rgb8,
    Yuyv16,    ///< luma in the low byte, chroma in the high one
    Offset16,  ///< the value v as v + 32768
    Numbers,   ///< elements of any kind, by themselves
};

/// What an initialise event says about the frames that follow.
struct FrameDescription
{
    std::uint32_t width = 0;  ///< 0: not said
    bool isVideo = false;
};
FrameDescription describeFrames(const Struct& init);

struct Layout
{
    Samples samples = Samples::Numbers;
    Kind kind = Kind::Empty;
    std::uint32_t width = 0, height = 0;  ///< pixels
    std::uint32_t channels = 1;           ///< elements of a pixel

    std::size_t pixelBytes() const { return channels * elementSize(kind); }
    /// "1920 × 1080 RGB"
    std::string text() const;
    /// Name of the samples for the page: "rgb8", ...
    const char* name() const;
};
/// Layout of the array; no pixels for an array without storage.
Layout layoutOf(const Array& frame, const FrameDescription& description);

struct Mesh;

struct Shot
{
    std::uint64_t version = 0;  ///< grows from shot to shot
    std::int64_t frame = 0;     ///< process events so far, this one included
    varitype record{Struct()};  ///< a copy of its own, without "handle"
    std::shared_ptr<const Array> copy;
    Layout layout;
    std::shared_ptr<const Mesh> mesh = {};  ///< of a model file; other models are in the record

    /// The frame, or null: the copy, or "data" of the record.
    const Array* pixels() const;
};
using ShotPtr = std::shared_ptr<const Shot>;

/// Keeps the storage of frames that are no longer looked at: fresh memory costs more than the copy.
class FramePool : public std::enable_shared_from_this<FramePool>
{
  public:
    std::shared_ptr<const Array> copy(const Array& frame);

  private:
    void keep(std::unique_ptr<Array> frame);

    std::mutex mutex_;
    std::vector<std::unique_ptr<Array>> spare_;
};

/// A copy of record and frame; `frame` may be null.
std::shared_ptr<Shot> takeShot(const varitype& record, const Array* frame,
                               const FrameDescription& description, FramePool& pool);

}  // namespace scansteps::viewer
