// The synchronised frame queue, with buffers that are reused.
#include "capture/frame_queue.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <exception>
#include <utility>

#include "core/print.h"
#include "core/waits.h"
#include "scansteps/error.h"
#include "scansteps/host_services.h"

namespace scansteps::capture {

namespace {
constexpr std::size_t kFallingBehind = 3;
}

void FrameQueue::open(const CaptureFormat& format)
{
    const std::lock_guard guard(lock_);
    format_ = format;
    frames_.clear();
    spare_.clear();
    taken_ = {};
    frameReady_ = closed_ = false;
    failure_[0] = 0;
    short_ = skipped_ = 0;
}

void FrameQueue::close()
{
    const std::lock_guard guard(lock_);
    closed_ = true;
    moved_.notify_all();
}

FrameQueue::Frame FrameQueue::emptyFrame()
{
    {
        const std::lock_guard guard(lock_);
        if (!spare_.empty()) {
            Frame frame = std::move(spare_.back());
            spare_.pop_back();
            return frame;
        }
    }
    // Uninitialised: only copied bytes are ever delivered.
    return {std::unique_ptr<std::byte[]>(new std::byte[format_.maxBytes()]), 0};
}

void FrameQueue::dropOldest()
{
    spare_.push_back(std::move(frames_.front()));
    frames_.pop_front();
    ++skipped_;
}

FrameQueue::Frame FrameQueue::copyOf(std::span<const std::byte> source, std::size_t pitch)
{
    Frame frame = emptyFrame();
    if (pitch == 0) {
        frame.size = std::min(source.size(), format_.maxBytes());
        std::memcpy(frame.bytes.get(), source.data(), frame.size);
        return frame;
    }
    const std::size_t row = 2 * static_cast<std::size_t>(format_.width);
    for (std::size_t y = 0; y < static_cast<std::size_t>(format_.height); ++y)
        std::memcpy(frame.bytes.get() + y * row, source.data() + y * pitch, row);
    frame.size = format_.minBytes();
    return frame;
}

void FrameQueue::push(std::span<const std::byte> source, std::size_t pitch) noexcept
try {
    const std::size_t row = 2 * static_cast<std::size_t>(format_.width);
    if (format_.jpeg || pitch <= row) pitch = 0;
    const std::size_t minSize =
        pitch == 0 ? format_.minBytes() : pitch * static_cast<std::size_t>(format_.height - 1) + row;
    std::size_t waiting = 0;
    if (source.size() < minSize) {
        const std::lock_guard guard(lock_);
        ++short_;
    } else {
        // Copied without the lock, which is held only for the queue operation.
        Frame frame = copyOf(source, pitch);
        const std::lock_guard guard(lock_);
        frames_.push_back(std::move(frame));
        waiting = frames_.size();
        if (waiting > kFallingBehind) dropOldest();
        frameReady_ = true;
        arrived_.notify_all();
    }
    if (waiting >= kFallingBehind) {
        print::text("i");
        std::fflush(stdout);
    }
} catch (const std::exception& error) {
    fail("%s", error.what());
}

void FrameQueue::fail(const char* format, ...) noexcept
{
    std::va_list values;
    va_start(values, format);
    {
        const std::lock_guard guard(lock_);
        std::vsnprintf(failure_, sizeof failure_, format, values);
    }
    va_end(values);
    arrived_.notify_all();
}

bool FrameQueue::waitUntilTaken()
{
    std::unique_lock guard(lock_);
    moved_.wait(guard, [&] { return closed_ || frames_.empty(); });
    return !closed_;
}

bool FrameQueue::sleepUntil(Clock::time_point time)
{
    std::unique_lock guard(lock_);
    return !moved_.wait_until(guard, time, [&] { return closed_; });
}

std::span<const std::byte> FrameQueue::take(int timeoutMs)
{
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    std::unique_lock guard(lock_);
    if (taken_.bytes) spare_.push_back(std::exchange(taken_, {}));
    // If the queue is empty, as for the first call, the loop runs again: take a frame, then wait for the
    // next.
    while (!taken_.bytes) {
        while (frames_.size() > 1) dropOldest();
        if (!frames_.empty()) {
            taken_ = std::move(frames_.front());
            frames_.pop_front();
        } else if (failure_[0] != 0) {
            failf("%s", failure_);
        }
        frameReady_ = false;
        moved_.notify_all();
        while (!frameReady_ && failure_[0] == 0) {
            if (hostInterrupted()) scansteps::fail("interrupted");
            const auto now = Clock::now();
            if (timeoutMs > 0 && now >= deadline) scansteps::fail("capture timeout");
            // Wait in slices, because the host cannot signal the condition variable.
            const auto slice = now + std::chrono::milliseconds(waits::kSliceMs);
            arrived_.wait_until(guard, timeoutMs > 0 ? std::min(slice, deadline) : slice);
        }
    }
    return {taken_.bytes.get(), taken_.size};
}

std::uint64_t FrameQueue::shortFrames() const
{
    const std::lock_guard guard(lock_);
    return short_;
}

std::uint64_t FrameQueue::skippedFrames() const
{
    const std::lock_guard guard(lock_);
    return skipped_;
}

}  // namespace scansteps::capture
