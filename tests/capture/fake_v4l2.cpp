// Fake Video4Linux devices: preloaded, this library answers for /dev/video*. /dev/video0
// is a node without frames, /dev/video2 "Fake Camera", /dev/video3 "Fake Second Camera". A device is a timer
// descriptor, so that a real poll() paces the frames.
#include "fake_camera.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <linux/videodev2.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace {

constinit scansteps::test::FakeCamera fake{};
std::mutex lock;

struct Device
{
    std::string name;
    bool camera = true;
    v4l2_pix_format format{};
    int memory = -1;
    std::size_t bufferSize = 0;
    std::vector<std::uint8_t*> buffers;
    std::deque<std::uint32_t> queued;
    std::uint32_t sequence = 0;
};
std::map<int, std::unique_ptr<Device>> devices;

template <class Function>
Function next(const char* name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

int realClose(int file)
{
    static const auto call = next<int (*)(int)>("close");
    return call(file);
}

void* realMap(void* address, std::size_t length, int protection, int flags, int file, off_t offset)
{
    static const auto call = next<void* (*)(void*, std::size_t, int, int, int, off_t)>("mmap");
    return call(address, length, protection, flags, file, offset);
}

using scansteps::test::every;

int openDevice(const char* path)
{
    const std::string name = path;
    if (name != "/dev/video0" && name != "/dev/video2" && name != "/dev/video3") {
        errno = ENOENT;
        return -1;
    }
    auto device = std::make_unique<Device>();
    device->camera = name != "/dev/video0";
    device->name = name == "/dev/video2"   ? "Fake Camera"
                   : name == "/dev/video3" ? "Fake Second Camera"
                                           : "Fake Data";
    const int file = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
    const std::lock_guard guard(lock);
    devices[file] = std::move(device);
    ++fake.open;
    return file;
}

void releaseBuffers(Device& device)
{
    for (std::uint8_t* buffer : device.buffers) munmap(buffer, device.bufferSize);
    device.buffers.clear();
    device.queued.clear();
    if (device.memory >= 0) realClose(device.memory);
    device.memory = -1;
}

int capabilities(const Device& device, v4l2_capability& answer)
{
    answer = {};
    std::snprintf(reinterpret_cast<char*>(answer.card), sizeof answer.card, "%s", device.name.c_str());
    answer.device_caps = device.camera ? V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING : V4L2_CAP_META_CAPTURE;
    answer.capabilities = V4L2_CAP_DEVICE_CAPS | V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING;
    return 0;
}

int enumerateFormat(v4l2_fmtdesc& answer)
{
    if (answer.index > (fake.jpeg != nullptr ? 1U : 0U)) return EINVAL;
    answer.pixelformat = answer.index == 0 ? V4L2_PIX_FMT_YUYV : V4L2_PIX_FMT_MJPEG;
    return 0;
}

int enumerateSize(v4l2_frmsizeenum& answer)
{
    static constexpr unsigned sizes[][2] = {{320, 240}, {640, 480}};
    if (answer.index >= 2) return EINVAL;
    answer.type = V4L2_FRMSIZE_TYPE_DISCRETE;
    answer.discrete = {sizes[answer.index][0], sizes[answer.index][1]};
    return 0;
}

int enumerateRate(v4l2_frmivalenum& answer)
{
    if (answer.index >= 2) return EINVAL;
    answer.type = V4L2_FRMIVAL_TYPE_DISCRETE;
    answer.discrete = {1, answer.index == 0 ? 15U : 30U};
    return 0;
}

int setFormat(Device& device, v4l2_format& format)
{
    v4l2_pix_format& pixels = format.fmt.pix;
    if (fake.width != 0) pixels.width = static_cast<std::uint32_t>(fake.width.load());
    if (fake.height != 0) pixels.height = static_cast<std::uint32_t>(fake.height.load());
    if (fake.jpeg == nullptr) pixels.pixelformat = V4L2_PIX_FMT_YUYV;
    if (fake.otherFormat != 0) pixels.pixelformat = V4L2_PIX_FMT_NV12;
    const bool jpeg = pixels.pixelformat == V4L2_PIX_FMT_MJPEG;
    pixels.bytesperline = jpeg ? 0 : pixels.width * 2 + static_cast<std::uint32_t>(fake.padding.load());
    pixels.sizeimage = jpeg ? pixels.width * pixels.height * 2 : pixels.bytesperline * pixels.height;
    device.format = pixels;
    return 0;
}

int requestBuffers(Device& device, v4l2_requestbuffers& wanted)
{
    releaseBuffers(device);
    wanted.count = std::min(wanted.count, 3U);  // drivers may grant fewer
    device.bufferSize = (device.format.sizeimage + 4095U) / 4096 * 4096;
    device.memory = memfd_create("frames", MFD_CLOEXEC);
    if (ftruncate(device.memory, static_cast<off_t>(device.bufferSize * wanted.count)) != 0) return ENOMEM;
    for (std::uint32_t i = 0; i < wanted.count; ++i)
        device.buffers.push_back(
            static_cast<std::uint8_t*>(realMap(nullptr, device.bufferSize, PROT_READ | PROT_WRITE, MAP_SHARED,
                                               device.memory, static_cast<off_t>(i * device.bufferSize))));
    return 0;
}

int describeBuffer(const Device& device, v4l2_buffer& buffer)
{
    if (buffer.index >= device.buffers.size()) return EINVAL;
    buffer.length = static_cast<std::uint32_t>(device.bufferSize);
    buffer.m.offset = static_cast<std::uint32_t>(buffer.index * device.bufferSize);
    return 0;
}

int stream(int file, Device& device, bool on)
{
    itimerspec timer{};
    const long interval = on ? 1000000000L / fake.rate : 0;
    timer.it_interval = {interval / 1000000000L, interval % 1000000000L};
    timer.it_value = timer.it_interval;
    if (!on) device.queued.clear();
    return timerfd_settime(file, 0, &timer, nullptr) == 0 ? 0 : errno;
}

std::uint32_t draw(const Device& device, std::uint8_t* to, std::uint32_t number)
{
    if (device.format.pixelformat == V4L2_PIX_FMT_MJPEG) {
        const std::string& file = *fake.jpeg;
        const std::size_t size = std::min(file.size(), device.bufferSize);
        std::memcpy(to, file.data(), size);
        return static_cast<std::uint32_t>(size);
    }
    const std::uint32_t row = 2 * device.format.width;
    for (std::uint32_t y = 0; y < device.format.height; ++y) {
        std::memset(to + std::size_t{y} * device.format.bytesperline, static_cast<int>(y + number), row);
        // Padding must not reach a frame.
        std::memset(to + std::size_t{y} * device.format.bytesperline + row, 0xEE,
                    device.format.bytesperline - row);
    }
    std::memcpy(to, &number, sizeof number);
    return device.format.sizeimage;
}

int dequeue(int file, Device& device, v4l2_buffer& buffer)
{
    std::uint64_t ticks = 0;
    if (read(file, &ticks, sizeof ticks) != sizeof ticks) return EAGAIN;
    device.sequence += static_cast<std::uint32_t>(ticks);  // frames that were not waited for are lost
    static long calls = 0;
    if (every(fake.notYet, calls++) || device.queued.empty()) return EAGAIN;
    const long number = fake.frames++;
    buffer.index = device.queued.front();
    device.queued.pop_front();
    buffer.bytesused = draw(device, device.buffers[buffer.index], static_cast<std::uint32_t>(number));
    buffer.sequence = device.sequence;
    buffer.flags = every(fake.damage, number) ? V4L2_BUF_FLAG_ERROR : 0;
    if (every(fake.cut, number)) --buffer.bytesused;
    return 0;
}

int answer(int file, Device& device, unsigned long request, void* argument)
{
    static long calls = 0;
    if (every(fake.interrupt, calls++)) return EINTR;
    if (request == fake.refuse) return fake.refuseWith;
    if (fake.unplugAfter > 0 && fake.frames >= fake.unplugAfter) return ENODEV;
    if (request == VIDIOC_QUERYCAP) return capabilities(device, *static_cast<v4l2_capability*>(argument));
    if (!device.camera) return EINVAL;
    switch (request) {
        case VIDIOC_ENUM_FMT:
            return enumerateFormat(*static_cast<v4l2_fmtdesc*>(argument));
        case VIDIOC_ENUM_FRAMESIZES:
            return enumerateSize(*static_cast<v4l2_frmsizeenum*>(argument));
        case VIDIOC_ENUM_FRAMEINTERVALS:
            return enumerateRate(*static_cast<v4l2_frmivalenum*>(argument));
        case VIDIOC_S_FMT:
            return setFormat(device, *static_cast<v4l2_format*>(argument));
        case VIDIOC_S_PARM: {
            const v4l2_fract time = static_cast<v4l2_streamparm*>(argument)->parm.capture.timeperframe;
            fake.rateAsked = int(time.denominator / std::max(time.numerator, 1U));
            return 0;
        }
        case VIDIOC_REQBUFS:
            return requestBuffers(device, *static_cast<v4l2_requestbuffers*>(argument));
        case VIDIOC_QUERYBUF:
            return describeBuffer(device, *static_cast<v4l2_buffer*>(argument));
        case VIDIOC_QBUF:
            device.queued.push_back(static_cast<v4l2_buffer*>(argument)->index);
            return 0;
        case VIDIOC_DQBUF:
            return dequeue(file, device, *static_cast<v4l2_buffer*>(argument));
        case VIDIOC_STREAMON:
            return stream(file, device, true);
        case VIDIOC_STREAMOFF:
            return stream(file, device, false);
        default:
            return ENOTTY;
    }
}

bool isVideo(const char* path)
{
    return std::strncmp(path, "/dev/video", 10) == 0;
}

}  // namespace

#define FAKE_EXPORT extern "C" [[gnu::visibility("default")]]

FAKE_EXPORT scansteps::test::FakeCamera* fakeCamera()
{
    return &fake;
}

FAKE_EXPORT int open(const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    if (isVideo(path)) return openDevice(path);
    static const auto call = next<int (*)(const char*, int, ...)>("open");
    return call(path, flags, mode);
}

FAKE_EXPORT int access(const char* path, int mode) noexcept
{
    if (std::strcmp(path, "/dev/video2") == 0 || std::strcmp(path, "/dev/video3") == 0) return 0;
    static const auto call = next<int (*)(const char*, int)>("access");
    return call(path, mode);
}

FAKE_EXPORT int ioctl(int file, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    {
        const std::lock_guard guard(lock);
        if (const auto found = devices.find(file); found != devices.end()) {
            const int error = answer(file, *found->second, request, argument);
            if (error == 0) return 0;
            errno = error;
            return -1;
        }
    }
    static const auto call = next<int (*)(int, unsigned long, ...)>("ioctl");
    return call(file, request, argument);
}

FAKE_EXPORT void* mmap(void* address, std::size_t length, int protection, int flags, int file,
                       off_t offset) noexcept
{
    if (file >= 0) {
        const std::lock_guard guard(lock);
        if (const auto found = devices.find(file); found != devices.end()) file = found->second->memory;
    }
    return realMap(address, length, protection, flags, file, offset);
}

FAKE_EXPORT int poll(pollfd* files, nfds_t count, int timeout)
{
    if (fake.hangUpAfter > 0 && fake.frames >= fake.hangUpAfter) {
        const std::lock_guard guard(lock);
        for (nfds_t i = 0; i < count; ++i)
            if (devices.contains(files[i].fd)) {
                files[i].revents = POLLERR | POLLHUP;
                return 1;
            }
    }
    static const auto call = next<int (*)(pollfd*, nfds_t, int)>("poll");
    return call(files, count, timeout);
}

FAKE_EXPORT int close(int file)
{
    {
        const std::lock_guard guard(lock);
        if (const auto found = devices.find(file); found != devices.end()) {
            releaseBuffers(*found->second);
            devices.erase(found);
            --fake.open;
        }
    }
    return realClose(file);
}
