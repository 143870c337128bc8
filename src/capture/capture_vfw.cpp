// Cameras on Windows: the Video for Windows capture service, controlled by messages to a hidden capture
// window. The service calls back on a thread of its own for every frame.
#ifdef _WIN32

#include <windows.h>
// vfw.h requires windows.h
#include <vfw.h>

#include <algorithm>
#include <mutex>
#include <utility>
#include <vector>

#include "capture/capture.h"
#include "core/print.h"
#include "scansteps/cameras.h"
#include "scansteps/error.h"

namespace scansteps::capture {

namespace {

constexpr DWORD fourCharacters(const char (&code)[5])
{
    DWORD value = 0;
    for (int i = 3; i >= 0; --i) value = value << 8 | static_cast<unsigned char>(code[i]);
    return value;
}

constexpr DWORD kYuy2 = fourCharacters("YUY2");
constexpr DWORD kMjpg = fourCharacters("MJPG");

/// Requests 60 frames per second on a thread of the service, without sound, not stopped by keys or mouse
/// buttons.
void askForStream(CAPTUREPARMS& parameters)
{
    parameters.dwRequestMicroSecPerFrame = 16666;
    parameters.fYield = 1;
    parameters.fCaptureAudio = 0;
    parameters.vKeyAbort = 0;
    parameters.fAbortLeftMouse = 0;
    parameters.fAbortRightMouse = 0;
}

void printFields(const BITMAPINFOHEADER& header)
{
    print::line("BITMAPINFOHEADER");
    const std::pair<std::int64_t, const char*> fields[] = {
        {header.biSize, " bih-> biSize\n"},
        {header.biWidth, " bih-> biWidth\n"},
        {header.biHeight, " bih-> biHeight\n"},
        {header.biPlanes, " bih-> biPlanes\n"},
        {header.biBitCount, " bih-> biBitCount\n"},
        {header.biCompression, " bih-> biCompression\n"},
        {header.biSizeImage, " bih-> biSizeImage\n"},
        {header.biXPelsPerMeter, " bih-> biXPelsPerMeter\n"},
        {header.biYPelsPerMeter, " bih-> biYPelsPerMeter\n"},
        {header.biClrUsed, " bih-> biClrUsed\n"},
        {header.biClrImportant, " bih-> biClrImportant\n"},
    };
    for (const auto& [value, label] : fields) print::field(value, label);
}

void printFields(const CAPTUREPARMS& parameters)
{
    const std::pair<std::int64_t, const char*> fields[] = {
        {parameters.dwRequestMicroSecPerFrame, " cparms->dwRequestMicroSecPerFrame\n"},
        {parameters.fMakeUserHitOKToCapture, " cparms->fMakeUserHitOKToCapture\n"},
        {parameters.wPercentDropForError, " cparms->wPercentDropForError\n"},
        {parameters.fYield, " cparms->fYield\n"},
        {parameters.dwIndexSize, " cparms->dwIndexSize\n"},
        {parameters.wChunkGranularity, " cparms->wChunkGranularity\n"},
        {parameters.fUsingDOSMemory, " cparms->fUsingDOSMemory\n"},
        {parameters.wNumVideoRequested, " cparms->wNumVideoRequested\n"},
        {parameters.fCaptureAudio, " cparms->fCaptureAudio\n"},
        {parameters.wNumAudioRequested, " cparms->wNumAudioRequested\n"},
        {parameters.vKeyAbort, " cparms->vKeyAbort\n"},
        {parameters.fAbortLeftMouse, " cparms->fAbortLeftMouse\n"},
        {parameters.fAbortRightMouse, " cparms->fAbortRightMouse\n"},
        {parameters.fLimitEnabled, " cparms->fLimitEnabled\n"},
        {parameters.wTimeLimit, " cparms->wTimeLimit\n"},
        {parameters.fMCIControl, " cparms->fMCIControl\n"},
        {parameters.fStepMCIDevice, " cparms->fStepMCIDevice\n"},
        {parameters.dwMCIStartTime, " cparms->dwMCIStartTime\n"},
        {parameters.dwMCIStopTime, " cparms->dwMCIStopTime\n"},
        {parameters.fStepCaptureAt2x, " cparms->fStepCaptureAt2x\n"},
        {parameters.wStepCaptureAverageFrames, " cparms->wStepCaptureAverageFrames\n"},
        {parameters.dwAudioBufferSize, " cparms->dwAudioBufferSize\n"},
        {parameters.fDisableWriteCache, " cparms->fDisableWriteCache\n"},
        {parameters.AVStreamMaster, " cparms->AVStreamMaster\n"},
    };
    for (const auto& [value, label] : fields) print::field(value, label);
}

class VfwDevice final : public CaptureDevice
{
  public:
    VfwDevice(int driver, const CaptureRequest& wanted);
    ~VfwDevice() override;
    CaptureFormat format() const override { return format_; }
    void start(FrameQueue& queue) override;

  private:
    static LRESULT CALLBACK onFrame(HWND window, LPVIDEOHDR frame);
    bool send(UINT message, std::size_t size, const void* data) const
    {
        return SendMessageA(window_, message, size, reinterpret_cast<LPARAM>(data)) != 0;
    }
    void setUp(int driver, const CaptureRequest& wanted);
    void chooseFormat(const CaptureRequest& wanted);
    void chooseStream() const;
    void close();

    HWND window_ = nullptr;
    bool connected_ = false;
    CaptureFormat format_;
    FrameQueue* queue_ = nullptr;
    // Held by every callback and while the device is detached from its window, so that late callbacks do not
    // use a destroyed device.
    static inline std::mutex callbacks_;
};

VfwDevice::VfwDevice(int driver, const CaptureRequest& wanted)
{
    window_ = capCreateCaptureWindowA(nullptr, 0, 0, 0, 0, 0, HWND_MESSAGE, 0);
    if (window_ == nullptr) fail("error init capCreateCaptureWindow");
    try {
        setUp(driver, wanted);
    } catch (...) {
        close();
        throw;
    }
}

VfwDevice::~VfwDevice()
{
    close();
}

void VfwDevice::setUp(int driver, const CaptureRequest& wanted)
{
    connected_ = send(WM_CAP_DRIVER_CONNECT, static_cast<std::size_t>(driver), nullptr);
    if (!connected_) fail("error init WM_CAP_DRIVER_CONNECT");
    send(WM_CAP_SET_OVERLAY, 0, nullptr);
    send(WM_CAP_SET_PREVIEW, 0, nullptr);
    if (!send(WM_CAP_SET_CALLBACK_VIDEOSTREAM, 0, reinterpret_cast<const void*>(&VfwDevice::onFrame)))
        fail("Could not set video stream callback");
    SetWindowLongPtrA(window_, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
    chooseFormat(wanted);
    chooseStream();
}

void VfwDevice::chooseFormat(const CaptureRequest& wanted)
{
    const auto size = static_cast<std::size_t>(SendMessageA(window_, WM_CAP_GET_VIDEOFORMAT, 0, 0));
    if (size == 0) fail("bisize Could not set video stream callback");
    // A colour table may follow the format, and a driver may report a size smaller than the header.
    std::vector<BITMAPINFOHEADER> format(size / sizeof(BITMAPINFOHEADER) + 1);
    BITMAPINFOHEADER& header = format[0];
    if (!send(WM_CAP_GET_VIDEOFORMAT, size, format.data()))
        fail("bisize Could not get WM_CAP_GET_VIDEOFORMAT ");
    printFields(header);
    header.biWidth = wanted.width;
    header.biHeight = wanted.height;
    header.biPlanes = 1;
    header.biBitCount = wanted.jpeg ? 24 : 16;
    header.biCompression = wanted.jpeg ? kMjpg : kYuy2;
    header.biSizeImage =
        static_cast<DWORD>(std::uint64_t{static_cast<std::uint32_t>(wanted.width)} *
                           static_cast<std::uint32_t>(wanted.height) * header.biBitCount / 8);
    if (!send(WM_CAP_SET_VIDEOFORMAT, size, format.data()))
        print::line("Could not set WM_CAP_SET_VIDEOFORMAT ");
    if (!send(WM_CAP_GET_VIDEOFORMAT, size, format.data()))
        fail("bisize Could not get WM_CAP_GET_VIDEOFORMAT ");
    // A negative height means rows from top to bottom, which these formats always have.
    format_ = {header.biWidth, header.biHeight < 0 ? -header.biHeight : header.biHeight, wanted.jpeg};
    if (header.biCompression == kMjpg || header.biCompression == kYuy2)
        format_.jpeg = header.biCompression == kMjpg;
}

void VfwDevice::chooseStream() const
{
    CAPTUREPARMS parameters{};
    static_assert(sizeof parameters == 96);
    const char* const cannotRead = "bisize Could not get WM_CAP_GET_SEQUENCE_SETUP ";
    if (!send(WM_CAP_GET_SEQUENCE_SETUP, sizeof parameters, &parameters)) fail(cannotRead);
    printFields(parameters);
    askForStream(parameters);
    if (!send(WM_CAP_SET_SEQUENCE_SETUP, sizeof parameters, &parameters))
        fail("bisize Could not get WM_CAP_SET_SEQUENCE_SETUP ");
    if (!send(WM_CAP_GET_SEQUENCE_SETUP, sizeof parameters, &parameters)) fail(cannotRead);
    printFields(parameters);
}

void VfwDevice::start(FrameQueue& queue)
{
    queue_ = &queue;
    if (!send(WM_CAP_SEQUENCE_NOFILE, 0, nullptr)) fail("WM_CAP_SEQUENCE_NOFILE ");
}

LRESULT CALLBACK VfwDevice::onFrame(HWND window, LPVIDEOHDR frame)
{
    const std::lock_guard guard(callbacks_);
    auto* device = reinterpret_cast<VfwDevice*>(GetWindowLongPtrA(window, GWLP_USERDATA));
    if (device == nullptr || device->queue_ == nullptr || frame == nullptr || frame->lpData == nullptr)
        return 1;
    std::size_t size = frame->dwBytesUsed;
    if (frame->dwBufferLength != 0) size = std::min<std::size_t>(size, frame->dwBufferLength);
    device->queue_->push({reinterpret_cast<const std::byte*>(frame->lpData), size});
    return 1;
}

void VfwDevice::close()
{
    if (window_ == nullptr) return;
    send(WM_CAP_SET_CALLBACK_VIDEOSTREAM, 0, nullptr);
    if (connected_) send(WM_CAP_DRIVER_DISCONNECT, 0, nullptr);
    {
        const std::lock_guard guard(callbacks_);
        SetWindowLongPtrA(window_, GWLP_USERDATA, 0);
    }
    DestroyWindow(window_);
    window_ = nullptr;
}

/// Index of the driver whose name contains the text.
int choose(const std::string& wanted)
{
    if (wanted.empty()) return 0;
    const auto cameras = listCameras();
    std::string there;
    for (const CameraInfo& camera : cameras) {
        if (camera.name.find(wanted) != std::string::npos) return camera.index;
        there += (there.empty() ? "" : ", ") + camera.name;
    }
    if (there.empty()) fail("no camera found");
    failf("no camera \"%s\"; there are: %s", wanted.c_str(), there.c_str());
}

}  // namespace

std::unique_ptr<CaptureDevice> openCamera(const CaptureRequest& request)
{
    return std::make_unique<VfwDevice>(choose(request.device), request);
}

}  // namespace scansteps::capture

#endif
