// Live capture: what the capture steps see of a camera, and what a platform has to bring. A device pushes
// frames into the queue from its own thread; the step takes the newest one, paced by the camera.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "capture/convert.h"
#include "capture/frame_queue.h"

namespace scansteps::capture {

/// What a step asks for; the device's own choice wins.
struct CaptureRequest
{
    int width = 0;
    int height = 0;
    bool jpeg = false;   ///< motion JPEG instead of uncompressed frames
    std::string device;  ///< part of a name, a path, "test:...", "file:..."; empty is the first camera
};

/// A camera that is set up. Destroying it ends its frames: when the destructor has returned, the queue is not
/// touched any more.
class CaptureDevice
{
  public:
    virtual ~CaptureDevice() = default;
    /// What it will deliver.
    virtual CaptureFormat format() const = 0;
    /// Frames begin to arrive in the queue.
    virtual void start(FrameQueue& queue) = 0;
};

/// Opens and sets up a device of this system's camera interface; throws what failed.
std::unique_ptr<CaptureDevice> openCamera(const CaptureRequest& request);
/// Opens a test device: `request.device` begins with "test:" or "file:".
std::unique_ptr<CaptureDevice> openTestDevice(const CaptureRequest& request);
bool isTestDevice(const std::string& device);

/// A running camera with its queue.
class Capture
{
  public:
    /// Opens the device and starts it; throws what failed.
    explicit Capture(const CaptureRequest& request);
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;

    const CaptureFormat& format() const { return format_; }
    /// Waits as FrameQueue::take() does and writes the frame as width × height YUYV16 samples. Returns what
    /// FrameConverter::convert() does.
    std::string next(std::span<std::uint16_t> yuyv, int timeoutMs);
    const FrameQueue& queue() const { return queue_; }

  private:
    /// Destroyed before the device, whose thread ends when its queue is closed.
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
