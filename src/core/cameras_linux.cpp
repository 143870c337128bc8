// Cameras on Linux: the Video4Linux capture devices.
#ifdef __linux__

#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "scansteps/cameras.h"

namespace scansteps {

namespace {

// Device numbers are small but may have gaps.
constexpr int kMaxDevices = 64;

class Device
{
  public:
    explicit Device(const std::string& path) : file_(::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC)) {}
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;
    ~Device()
    {
        if (file_ >= 0) ::close(file_);
    }

    template <class Argument>
    bool ask(unsigned long request, Argument& argument) const
    {
        if (file_ < 0) return false;
        int result = 0;
        do result = ::ioctl(file_, request, &argument);
        while (result < 0 && errno == EINTR);
        return result == 0;
    }

  private:
    int file_;
};

bool streamsFrames(const v4l2_capability& capability)
{
    const auto caps = (capability.capabilities & V4L2_CAP_DEVICE_CAPS) != 0 ? capability.device_caps
                                                                            : capability.capabilities;
    return (caps & V4L2_CAP_VIDEO_CAPTURE) != 0 && (caps & V4L2_CAP_STREAMING) != 0;
}

std::string fourCharacters(std::uint32_t code)
{
    std::string text;
    for (unsigned shift = 0; shift < 32; shift += 8) text += static_cast<char>(code >> shift & 0x7FU);
    return text;
}

double highestRate(const Device& device, std::uint32_t format, std::uint32_t width, std::uint32_t height)
{
    double best = 0;
    v4l2_frmivalenum entry{};
    entry.pixel_format = format;
    entry.width = width;
    entry.height = height;
    for (; entry.index < 100 && device.ask(VIDIOC_ENUM_FRAMEINTERVALS, entry); ++entry.index) {
        const bool discrete = entry.type == V4L2_FRMIVAL_TYPE_DISCRETE;
        const v4l2_fract interval = discrete ? entry.discrete : entry.stepwise.min;
        if (interval.numerator != 0)
            best = std::max(best, static_cast<double>(interval.denominator) / interval.numerator);
        if (!discrete) break;
    }
    return best;
}

void addModes(const Device& device, std::uint32_t format, std::vector<CameraMode>& modes)
{
    const auto add = [&](std::uint32_t width, std::uint32_t height) {
        modes.push_back({fourCharacters(format), width, height, highestRate(device, format, width, height)});
    };
    v4l2_frmsizeenum entry{};
    entry.pixel_format = format;
    for (; entry.index < 1000 && device.ask(VIDIOC_ENUM_FRAMESIZES, entry); ++entry.index) {
        if (entry.type == V4L2_FRMSIZE_TYPE_DISCRETE) {
            add(entry.discrete.width, entry.discrete.height);
            continue;
        }
        add(entry.stepwise.min_width, entry.stepwise.min_height);
        add(entry.stepwise.max_width, entry.stepwise.max_height);
        return;
    }
}

}  // namespace

std::vector<CameraInfo> listCameras()
{
    std::vector<CameraInfo> cameras;
    for (int number = 0; number < kMaxDevices; ++number) {
        const std::string path = "/dev/video" + std::to_string(number);
        v4l2_capability capability{};
        if (!Device(path).ask(VIDIOC_QUERYCAP, capability) || !streamsFrames(capability)) continue;
        const auto* card = reinterpret_cast<const char*>(capability.card);
        cameras.push_back({std::string(card, std::find(card, card + sizeof capability.card, '\0')), path,
                           static_cast<int>(cameras.size())});
    }
    return cameras;
}

std::vector<CameraMode> cameraModes(const CameraInfo& camera)
{
    std::vector<CameraMode> modes;
    const Device device(camera.path);
    v4l2_fmtdesc format{};
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    for (; format.index < 100 && device.ask(VIDIOC_ENUM_FMT, format); ++format.index)
        addModes(device, format.pixelformat, modes);
    return modes;
}

}  // namespace scansteps

#endif
