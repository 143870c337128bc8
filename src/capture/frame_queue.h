// The queue between a capture device's thread, which pushes every frame, and the chain's thread, which takes
// only the newest one.
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

/// The format of a capture device's frames.
struct CaptureFormat
{
    int width = 0;      ///< pixels
    int height = 0;     ///< rows
    bool jpeg = false;  ///< motion JPEG; otherwise two bytes per pixel: Y0 U Y1 V

    std::size_t pixels() const { return static_cast<std::size_t>(width) * static_cast<std::size_t>(height); }
    /// Frames with fewer bytes are damaged.
    std::size_t minBytes() const { return jpeg ? 4 : 2 * pixels(); }
    /// Size of a frame buffer: twice that of an uncompressed frame.
    std::size_t maxBytes() const { return 4 * pixels(); }
};

/// Frames in order of arrival, protected by one lock, with a "frame ready" flag that stays set until the
/// consumer resets it. At most three waiting frames are kept, because only the newest is ever delivered.
class FrameQueue
{
  public:
    using Clock = std::chrono::steady_clock;

    /// Resets the queue for frames of that format.
    void open(const CaptureFormat& format);
    /// Ends all waits of the device's thread.
    void close();

    // Called by the device's thread.

    /// Appends a copy of a frame. `pitch` is the distance of rows in bytes, 0 for contiguous rows. Frames
    /// shorter than minBytes() are dropped and counted, longer ones truncated to maxBytes(). Prints "i" if
    /// three or more frames are waiting afterwards. Never throws: running out of memory ends the frames.
    void push(std::span<const std::byte> frame, std::size_t pitch = 0) noexcept;
    /// Ends the frames with this reason, formatted as by printf().
    void fail(const char* format, ...) noexcept __attribute__((format(printf, 2, 3)));
    /// Waits until the consumer has taken all frames; returns false if the queue was closed.
    bool waitUntilTaken();
    /// Returns false if the queue was closed before that time.
    bool sleepUntil(Clock::time_point time);

    // Called by the chain's thread.

    /// Takes the newest frame, then waits for the next to arrive, so that the device paces the caller. Valid
    /// until the next call. Throws "capture timeout" after `timeoutMs` (0: no limit), the device's reason
    /// when no more frames will arrive, and "interrupted" when the host is interrupted.
    std::span<const std::byte> take(int timeoutMs);

    /// Number of frames dropped as too short.
    std::uint64_t shortFrames() const;
    /// Number of frames replaced by newer ones before they were taken.
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
