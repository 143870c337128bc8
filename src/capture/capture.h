// Live capture: the interface of the capture steps to a camera, and the interface that each platform
// implements. A device pushes frames into the queue from its own thread; the step takes the newest one, paced
// by the camera.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "capture/convert.h"
#include "capture/frame_queue.h"

namespace scansteps::capture {

/// The settings requested by a step; the device may choose others.
struct CaptureRequest
{
    int width = 0;
    int height = 0;
    bool jpeg = false;   ///< motion JPEG instead of uncompressed frames
    std::string device;  ///< part of a name, a path, "test:...", "file:..."; empty is the first camera
};

/// A configured camera. Destroying it stops the frames: after the destructor returns, the queue is no longer
/// accessed.
class CaptureDevice
{
  public:
    virtual ~CaptureDevice() = default;
    /// The format of its frames.
    virtual CaptureFormat format() const = 0;
    /// Starts pushing frames into the queue.
    virtual void start(FrameQueue& queue) = 0;
};

/// Opens and configures a camera through the system's interface. Throws the reason of a failure.
std::unique_ptr<CaptureDevice> openCamera(const CaptureRequest& request);
/// Opens a test device: `request.device` begins with "test:" or "file:".
std::unique_ptr<CaptureDevice> openTestDevice(const CaptureRequest& request);
bool isTestDevice(const std::string& device);

/// A running camera with its queue.
class Capture
{
  public:
    /// Opens and starts the device. Throws the reason of a failure.
    explicit Capture(const CaptureRequest& request);
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;

    const CaptureFormat& format() const { return format_; }
    /// Waits like FrameQueue::take() and writes the frame as width × height YUYV16 samples. Returns the
    /// result of FrameConverter::convert().
    std::string next(std::span<std::uint16_t> yuyv, int timeoutMs);
    const FrameQueue& queue() const { return queue_; }

  private:
    /// Declared after the device and so destroyed before it: the device's thread ends when the queue is
    /// closed.
    struct QueueCloser
    {
        FrameQueue& queue;
        ~QueueCloser() { queue.close(); }
    };

    FrameQueue queue_;
    CaptureFormat format_;
    FrameConverter converter_;
    std::unique_ptr<CaptureDevice> device_;
    QueueCloser closer_{queue_};
};

}  // namespace scansteps::capture
