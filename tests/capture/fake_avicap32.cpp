// A fake capture service: answers every message that a client of the real one sends, refuses on
// demand, and delivers frames from a thread of its own.
#include "fake_camera.h"

#include <windows.h>
// vfw.h needs windows.h first
#include <vfw.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

constexpr char kClassName[] = "ScanstepsFakeCapture";
constexpr const char* kDrivers[] = {"Fake Camera", "Fake Second Camera"};

struct MessageName
{
    UINT message;
    const char* name;
};
constexpr MessageName kMessages[] = {
    {WM_CAP_DRIVER_CONNECT, "DRIVER_CONNECT"},
    {WM_CAP_DRIVER_DISCONNECT, "DRIVER_DISCONNECT"},
    {WM_CAP_SET_OVERLAY, "SET_OVERLAY"},
    {WM_CAP_SET_PREVIEW, "SET_PREVIEW"},
    {WM_CAP_SET_CALLBACK_VIDEOSTREAM, "SET_CALLBACK_VIDEOSTREAM"},
    {WM_CAP_GET_VIDEOFORMAT, "GET_VIDEOFORMAT"},
    {WM_CAP_SET_VIDEOFORMAT, "SET_VIDEOFORMAT"},
    {WM_CAP_GET_SEQUENCE_SETUP, "GET_SEQUENCE_SETUP"},
    {WM_CAP_SET_SEQUENCE_SETUP, "SET_SEQUENCE_SETUP"},
    {WM_CAP_SEQUENCE_NOFILE, "SEQUENCE_NOFILE"},
};

std::mutex logLock;
std::string logText;
constinit scansteps::test::FakeCamera fake{};

void note(const char* name, const std::string& detail)
{
    const std::lock_guard guard(logLock);
    logText += name + (detail.empty() ? "" : " " + detail) + "\n";
}

constexpr DWORD code(const char (&text)[5])
{
    return static_cast<DWORD>(text[0] | text[1] << 8 | text[2] << 16 | text[3] << 24);
}

using scansteps::test::every;

class Service
{
  public:
    explicit Service(HWND window) : window_(window)
    {
        format_.biSize = sizeof format_;
        format_.biWidth = 160;
        format_.biHeight = 120;
        format_.biPlanes = 1;
        format_.biBitCount = 24;
        format_.biSizeImage = 160 * 120 * 3;
        stream_.dwRequestMicroSecPerFrame = 66667;
        stream_.vKeyAbort = VK_ESCAPE;
        stream_.fAbortLeftMouse = stream_.fAbortRightMouse = TRUE;
        stream_.wPercentDropForError = 10;
    }
    ~Service() { stop(); }

    LRESULT answer(UINT message, WPARAM size, LPARAM data)
    {
        const char* name = "";
        for (const MessageName& known : kMessages)
            if (known.message == message) name = known.name;
        note(name, detail(message, size, data));
        if (message == fake.refuse) return 0;
        switch (message) {
            case WM_CAP_DRIVER_CONNECT:
                connected_ = size < std::size(kDrivers);
                return connected_;
            case WM_CAP_DRIVER_DISCONNECT:
                if (fake.late == 0) stop();
                return TRUE;
            case WM_CAP_SET_OVERLAY:
            case WM_CAP_SET_PREVIEW:
                return connected_;
            case WM_CAP_SET_CALLBACK_VIDEOSTREAM: {
                const std::lock_guard guard(lock_);
                if (data != 0 || fake.late == 0) callback_ = reinterpret_cast<CAPVIDEOCALLBACK>(data);
                return TRUE;
            }
            case WM_CAP_GET_VIDEOFORMAT:
                return getFormat(size, data);
            case WM_CAP_SET_VIDEOFORMAT:
                return setFormat(size, *reinterpret_cast<const BITMAPINFOHEADER*>(data));
            case WM_CAP_GET_SEQUENCE_SETUP:
                if (size != sizeof stream_) return FALSE;
                std::memcpy(reinterpret_cast<void*>(data), &stream_, sizeof stream_);
                return TRUE;
            case WM_CAP_SET_SEQUENCE_SETUP:
                if (size != sizeof stream_) return FALSE;
                std::memcpy(&stream_, reinterpret_cast<const void*>(data), sizeof stream_);
                return TRUE;
            case WM_CAP_SEQUENCE_NOFILE:
                // Without fYield the service would reply only after the capture has ended.
                if (!connected_ || callback_ == nullptr || !stream_.fYield) return FALSE;
                thread_ = std::thread([this] { deliver(); });
                return TRUE;
            default:
                return FALSE;
        }
    }

  private:
    std::string detail(UINT message, WPARAM size, LPARAM data) const
    {
        char text[200] = {};
        if (message == WM_CAP_SET_VIDEOFORMAT) {
            const auto& wanted = *reinterpret_cast<const BITMAPINFOHEADER*>(data);
            std::snprintf(text, sizeof text, "%ldx%ld planes %d bits %d %.4s image %lu", wanted.biWidth,
                          wanted.biHeight, wanted.biPlanes, wanted.biBitCount,
                          reinterpret_cast<const char*>(&wanted.biCompression), wanted.biSizeImage);
        } else if (message == WM_CAP_SET_SEQUENCE_SETUP) {
            const auto& wanted = *reinterpret_cast<const CAPTUREPARMS*>(data);
            std::snprintf(text, sizeof text, "interval %lu yield %d audio %d key %u left %d right %d",
                          wanted.dwRequestMicroSecPerFrame, wanted.fYield, wanted.fCaptureAudio,
                          wanted.vKeyAbort, wanted.fAbortLeftMouse, wanted.fAbortRightMouse);
        } else if (message == WM_CAP_SET_CALLBACK_VIDEOSTREAM) {
            return data != 0 ? "set" : "none";
        } else {
            std::snprintf(text, sizeof text, "%d", static_cast<int>(size));
        }
        return text;
    }

    LRESULT getFormat(WPARAM size, LPARAM data) const
    {
        if (data != 0)
            std::memcpy(reinterpret_cast<void*>(data), &format_, std::min<std::size_t>(size, sizeof format_));
        return sizeof format_;
    }

    LRESULT setFormat(WPARAM size, const BITMAPINFOHEADER& wanted)
    {
        if (size < sizeof wanted || wanted.biWidth < 1 || wanted.biHeight < 1) return FALSE;
        format_ = wanted;
        if (fake.width != 0) {
            format_.biWidth = fake.width;
            format_.biHeight = fake.height;
        }
        format_.biSizeImage = static_cast<DWORD>(format_.biWidth * format_.biHeight * format_.biBitCount / 8);
        return TRUE;
    }

    void deliver()
    {
        const bool jpeg = format_.biCompression == code("MJPG");
        std::string buffer =
            jpeg ? *fake.jpeg
                 : std::string(static_cast<std::size_t>(format_.biWidth * format_.biHeight * 2), '\0');
        auto due = std::chrono::steady_clock::now();
        std::unique_lock guard(lock_);
        for (std::uint32_t frame = 0; !ended_; ++frame) {
            if (fake.rate > 0) {
                due += std::chrono::microseconds(1000000 / fake.rate);
                if (wake_.wait_until(guard, due, [&] { return ended_; })) return;
            }
            const CAPVIDEOCALLBACK callback = callback_;
            guard.unlock();
            if (callback != nullptr) {
                if (!jpeg) std::memcpy(buffer.data(), &frame, sizeof frame);
                VIDEOHDR header{};
                header.lpData = reinterpret_cast<BYTE*>(buffer.data());
                header.dwBufferLength = static_cast<DWORD>(buffer.size());
                header.dwBytesUsed = header.dwBufferLength - (every(fake.cut, frame) ? 1 : 0);
                callback(window_, &header);
                ++fake.frames;
            }
            guard.lock();
        }
    }

    void stop()
    {
        {
            const std::lock_guard guard(lock_);
            ended_ = true;
            wake_.notify_all();
        }
        if (thread_.joinable()) thread_.join();
    }

    HWND window_;
    bool connected_ = false;
    BITMAPINFOHEADER format_{};
    CAPTUREPARMS stream_{};
    std::mutex lock_;
    std::condition_variable wake_;
    CAPVIDEOCALLBACK callback_ = nullptr;
    bool ended_ = false;
    std::thread thread_;
};

// The service keeps its state in the extra bytes of the window; the user data belongs to the client.
LRESULT CALLBACK windowProcedure(HWND window, UINT message, WPARAM first, LPARAM second)
{
    auto* service = reinterpret_cast<Service*>(GetWindowLongPtrA(window, 0));
    if (message == WM_NCCREATE) {
        SetWindowLongPtrA(window, 0, reinterpret_cast<LONG_PTR>(new Service(window)));
    } else if (message == WM_NCDESTROY) {
        SetWindowLongPtrA(window, 0, 0);
        delete service;
    } else if (message >= WM_CAP_START && message <= WM_CAP_END && service != nullptr) {
        return service->answer(message, first, second);
    }
    return DefWindowProcA(window, message, first, second);
}

}  // namespace

extern "C" {

__declspec(dllexport) HWND WINAPI capCreateCaptureWindowA(LPCSTR title, DWORD style, int x, int y, int width,
                                                          int height, HWND parent, int id)
{
    note("CREATE", std::to_string(style) + (parent == HWND_MESSAGE ? " message-only " : " ") +
                       std::to_string(id) + (title == nullptr ? " no title" : ""));
    if (fake.refuse == fake.kCreateWindow) return nullptr;
    WNDCLASSA description{};
    description.lpfnWndProc = windowProcedure;
    description.cbWndExtra = sizeof(void*);
    description.hInstance = GetModuleHandleA("avicap32.dll");
    description.lpszClassName = kClassName;
    RegisterClassA(&description);  // fails if it is already registered
    return CreateWindowExA(0, kClassName, title, style, x, y, width, height, parent,
                           reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)), description.hInstance, nullptr);
}

__declspec(dllexport) BOOL WINAPI
    capGetDriverDescriptionA(UINT driver, LPSTR name, INT nameSize, LPSTR version, INT versionSize)
{
    if (driver >= std::size(kDrivers)) return FALSE;
    std::snprintf(name, static_cast<std::size_t>(nameSize), "%s", kDrivers[driver]);
    std::snprintf(version, static_cast<std::size_t>(versionSize), "1.0");
    return TRUE;
}

__declspec(dllexport) scansteps::test::FakeCamera* fakeCamera()
{
    fake.takeLog = [] {
        static std::string taken;
        const std::lock_guard guard(logLock);
        taken = std::exchange(logText, {});
        return taken.c_str();
    };
    return &fake;
}
}
