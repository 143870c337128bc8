// The queue between a capture device's thread and the chain's thread: an unbounded camera on one side, a
// consumer that wants the newest frame only on the other.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

namespace scansteps::capture {

/// What a capture device delivers.
struct CaptureFormat
{
    int width = 0;      ///< pixels
    int height = 0;     ///< rows
    bool jpeg = false;  ///< frames are motion JPEG, else two bytes a pixel: Y0 U Y1 V

    std::size_t pixels() const { return static_cast<std::size_t>(width) * static_cast<std::size_t>(height); }
    /// A frame with fewer bytes is damaged.
    std::size_t minBytes() const { return jpeg ? 4 : 2 * pixels(); }
    /// Room that a frame gets: twice an uncompressed one.
    std::size_t mostBytes() const { return 4 * pixels(); }
};

/// Frames in the order of their arrival, under one lock, with a "frame ready" signal that stays until the
/// consumer resets it. Of frames that nobody has taken the last three are kept, as only the newest is ever
/// delivered.
class FrameQueue
{
  public:
    using Clock = std::chrono::steady_clock;

    /// Forgets everything and prepares for frames of that format.
    void open(const CaptureFormat& format);
    /// Ends the waits of the device's thread.
    void close();

    // The device's thread.

    /// Copies a frame in. `pitch` is the distance of rows in bytes, 0 for rows without padding. A frame that
    /// is shorter than its format needs is dropped and counted; of a longer one mostBytes() are kept. Prints
    /// "i" when three or more frames are waiting then. Never throws: without memory the frames end.
    void push(std::span<const std::byte> frame, std::size_t pitch = 0) noexcept;
    /// No frame will come any more, for this reason, as printf() makes it.
    void fail(const char* format, ...) noexcept __attribute__((format(printf, 2, 3)));
    /// Waits until the consumer has taken everything; false when the queue was closed.
    bool waitUntilTaken();
    /// False when the queue was closed before that time.
    bool sleepUntil(Clock::time_point time);

    // The chain's thread.

    /// The newest frame, after the one behind it has arrived: the caller is paced by the device. Valid until
    /// the next call. Waits for ever when `timeoutMs` is 0, else throws "capture timeout" after that long.
    /// Throws the device's reason when no frame will come any more, and "interrupted" with the host.
    std::span<const std::byte> take(int timeoutMs);

    /// Frames dropped as too short.
    std::uint64_t shortFrames() const;
    /// Frames that were replaced by newer ones before anybody took them.
    std::uint64_t skippedFrames() const;

  private:
    struct Frame
    {
        std::unique_ptr<std::byte[]> bytes;
        std::size_t size = 0;
    };
    Frame copyOf(std::span<const std::byte> source, std::size_t pitch);
    Frame emptyFrame();
    void dropOldest();

    CaptureFormat format_;
    mutable std::mutex lock_;
    std::condition_variable arrived_;  // frameReady_ or failure_ changed
    std::condition_variable moved_;    // the consumer took a frame, or closed_ changed
    std::deque<Frame> frames_;
    std::vector<Frame> spare_;
    Frame taken_;
    bool frameReady_ = false;
    bool closed_ = false;
    char failure_[1024] = "";
    std::uint64_t short_ = 0, skipped_ = 0;
};

}  // namespace scansteps::capture
