// Cameras on Linux: Video4Linux streaming with buffers mapped from the driver.
#ifdef __linux__

#include <fcntl.h>
#include <linux/videodev2.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "capture/capture.h"
#include "scansteps/cameras.h"
#include "scansteps/error.h"

namespace scansteps::capture {

namespace {

constexpr unsigned kBuffers = 4;

class Descriptor
{
  public:
    explicit Descriptor(int file = -1) : file_(file) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor()
    {
        if (file_ >= 0) ::close(file_);
    }
    int get() const { return file_; }

  private:
    int file_;
};

/// Calls ioctl(), repeatedly while signals interrupt it. Returns 0 or the error number.
template <class Argument>
int request(int file, unsigned long code, Argument* argument)
{
    while (::ioctl(file, code, argument) < 0)
        if (errno != EINTR) return errno;
    return 0;
}

std::string reason(int error)
{
    return std::generic_category().message(error);
}

/// A driver's buffer mapped into memory.
class Mapping
{
  public:
    Mapping(int file, const v4l2_buffer& buffer)
        : size_(buffer.length),
          bytes_(::mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED, file, buffer.m.offset))
    {
    }
    Mapping(Mapping&& other) noexcept : size_(other.size_), bytes_(std::exchange(other.bytes_, MAP_FAILED)) {}
    Mapping(const Mapping&) = delete;
    Mapping& operator=(const Mapping&) = delete;
    Mapping& operator=(Mapping&&) = delete;
    ~Mapping()
    {
        if (valid()) ::munmap(bytes_, size_);
    }
    bool valid() const { return bytes_ != MAP_FAILED; }
    std::span<const std::byte> bytes(std::size_t count) const
    {
        return {static_cast<const std::byte*>(bytes_), std::min(count, size_)};
    }

  private:
    std::size_t size_;
    void* bytes_;
};

class V4l2Device final : public CaptureDevice
{
  public:
    V4l2Device(const std::string& path, const CaptureRequest& wanted);
    ~V4l2Device() override;
    CaptureFormat format() const override { return format_; }
    void start(FrameQueue& queue) override;

  private:
    [[noreturn]] void failWith(const char* what, int error) const;
    void chooseFormat(const CaptureRequest& wanted);
    void askForRate() const;
    void mapBuffers();
    v4l2_buffer plainBuffer() const;
    void run(FrameQueue& queue);
    int deliverFrame(FrameQueue& queue);

    std::string path_;
    Descriptor file_, stop_;
    CaptureFormat format_;
    std::size_t pitch_ = 0;
    std::vector<Mapping> buffers_;
    std::thread thread_;
};

V4l2Device::V4l2Device(const std::string& path, const CaptureRequest& wanted)
    : path_(path),
      file_(::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC)),
      stop_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (file_.get() < 0) failWith("cannot be opened", errno);
    if (stop_.get() < 0) failWith("no event", errno);
    chooseFormat(wanted);
    askForRate();
    mapBuffers();
}

V4l2Device::~V4l2Device()
{
    if (!thread_.joinable()) return;
    const std::uint64_t one = 1;
    // The write can fail only if the eventfd is already signalled.
    [[maybe_unused]] const auto written = ::write(stop_.get(), &one, sizeof one);
    thread_.join();
    int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    request(file_.get(), VIDIOC_STREAMOFF, &type);
}

void V4l2Device::failWith(const char* what, int error) const
{
    failf("camera %s: %s (%s)", path_.c_str(), what, reason(error).c_str());
}

void V4l2Device::chooseFormat(const CaptureRequest& wanted)
{
    v4l2_format format{};
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    v4l2_pix_format& pixels = format.fmt.pix;
    pixels.width = static_cast<std::uint32_t>(wanted.width);
    pixels.height = static_cast<std::uint32_t>(wanted.height);
    pixels.pixelformat = wanted.jpeg ? V4L2_PIX_FMT_MJPEG : V4L2_PIX_FMT_YUYV;
    pixels.field = V4L2_FIELD_ANY;
    if (const int error = request(file_.get(), VIDIOC_S_FMT, &format))
        failWith("the format is refused", error);
    // The driver has stored its own choice in the structure.
    const bool jpeg = pixels.pixelformat == V4L2_PIX_FMT_MJPEG || pixels.pixelformat == V4L2_PIX_FMT_JPEG;
    if (!jpeg && pixels.pixelformat != V4L2_PIX_FMT_YUYV)
        failf("camera %s: delivers neither YUYV nor MJPG frames", path_.c_str());
    if (pixels.width > 65535 || pixels.height > 65535)
        failf("camera %s: frames of %u x %u", path_.c_str(), pixels.width, pixels.height);
    format_ = {static_cast<int>(pixels.width), static_cast<int>(pixels.height), jpeg};
    pitch_ = jpeg ? 0 : pixels.bytesperline;
}

// Many drivers support a single rate, so any answer is accepted.
void V4l2Device::askForRate() const
{
    v4l2_streamparm parameters{};
    parameters.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    parameters.parm.capture.timeperframe = {1, 60};
    request(file_.get(), VIDIOC_S_PARM, &parameters);
}

v4l2_buffer V4l2Device::plainBuffer() const
{
    v4l2_buffer buffer{};
    buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    buffer.memory = V4L2_MEMORY_MMAP;
    return buffer;
}

void V4l2Device::mapBuffers()
{
    v4l2_requestbuffers wanted{};
    wanted.count = kBuffers;
    wanted.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    wanted.memory = V4L2_MEMORY_MMAP;
    if (const int error = request(file_.get(), VIDIOC_REQBUFS, &wanted)) failWith("no buffers", error);
    if (wanted.count == 0) failWith("no buffers", ENOMEM);
    for (std::uint32_t index = 0; index < wanted.count; ++index) {
        v4l2_buffer buffer = plainBuffer();
        buffer.index = index;
        if (const int error = request(file_.get(), VIDIOC_QUERYBUF, &buffer)) failWith("no buffer", error);
        buffers_.emplace_back(file_.get(), buffer);
        if (!buffers_.back().valid()) failWith("a buffer cannot be mapped", errno);
        if (const int error = request(file_.get(), VIDIOC_QBUF, &buffer))
            failWith("a buffer is refused", error);
    }
}

void V4l2Device::start(FrameQueue& queue)
{
    int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    if (const int error = request(file_.get(), VIDIOC_STREAMON, &type)) failWith("does not start", error);
    thread_ = std::thread([this, &queue] { run(queue); });
}

void V4l2Device::run(FrameQueue& queue)
{
    for (;;) {
        pollfd waits[2] = {{file_.get(), POLLIN, 0}, {stop_.get(), POLLIN, 0}};
        int error = 0;
        if (::poll(waits, 2, -1) < 0)
            error = errno == EINTR ? 0 : errno;
        else if (waits[1].revents != 0)
            return;
        else if ((waits[0].revents & POLLIN) != 0)
            error = deliverFrame(queue);
        else if (waits[0].revents != 0)
            error = ENODEV;  // unplugged, or streaming was stopped externally
        if (error != 0) return queue.fail("camera %s: no more frames (%s)", path_.c_str(), ::strerror(error));
    }
}

/// Returns 0 or the error number.
int V4l2Device::deliverFrame(FrameQueue& queue)
{
    v4l2_buffer buffer = plainBuffer();
    const int error = request(file_.get(), VIDIOC_DQBUF, &buffer);
    if (error == EAGAIN) return 0;
    if (error != 0) return error;
    if (buffer.index >= buffers_.size()) return EINVAL;
    // A frame that the driver marks as damaged is counted as too short.
    const bool damaged = (buffer.flags & V4L2_BUF_FLAG_ERROR) != 0;
    queue.push(buffers_[buffer.index].bytes(damaged ? 0 : buffer.bytesused), pitch_);
    return request(file_.get(), VIDIOC_QBUF, &buffer);
}

/// Path of the camera given by part of its name or by a path, which may be a symbolic link.
std::string choose(const std::string& wanted)
{
    if (wanted.starts_with('/') && ::access(wanted.c_str(), F_OK) == 0) return wanted;
    const auto cameras = listCameras();
    for (const CameraInfo& camera : cameras)
        if (camera.path == wanted || camera.name.find(wanted) != std::string::npos) return camera.path;
    std::string there;
    for (const CameraInfo& camera : cameras)
        there += (there.empty() ? "" : ", ") + camera.name + " (" + camera.path + ")";
    if (there.empty()) fail("no camera found");
    failf("no camera \"%s\"; there are: %s", wanted.c_str(), there.c_str());
}

}  // namespace

std::unique_ptr<CaptureDevice> openCamera(const CaptureRequest& request)
{
    return std::make_unique<V4l2Device>(choose(request.device), request);
}

}  // namespace scansteps::capture

#endif
