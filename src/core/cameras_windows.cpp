// Cameras on Windows: the drivers of the capture service, which is loaded on demand because some editions of
// Windows lack it.
#ifdef _WIN32

#include <windows.h>
// vfw.h needs windows.h first
#include <vfw.h>

#include <cstring>
#include <utility>

#include "scansteps/cameras.h"

namespace scansteps {

namespace {

constexpr UINT kMaxDrivers = 10;  // the service's own limit

struct Service
{
    using Describe = BOOL(WINAPI*)(UINT, LPSTR, INT, LPSTR, INT);
    using CreateCaptureWindow = HWND(WINAPI*)(LPCSTR, DWORD, int, int, int, int, HWND, int);

    Service() : library(LoadLibraryA("avicap32.dll"))
    {
        if (library == nullptr) return;
        load(describe, "capGetDriverDescriptionA");
        load(createWindow, "capCreateCaptureWindowA");
    }
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;
    ~Service()
    {
        if (library != nullptr) FreeLibrary(library);
    }

    HMODULE library;
    Describe describe = nullptr;
    CreateCaptureWindow createWindow = nullptr;

  private:
    template <class Function>
    void load(Function& function, const char* name)
    {
        const FARPROC address = GetProcAddress(library, name);
        std::memcpy(&function, &address, sizeof function);
    }
};

// The service returns names in the system's code page.
std::string utf8(const char* text)
{
    wchar_t wide[256];
    char narrow[3 * 256];
    if (MultiByteToWideChar(CP_ACP, 0, text, -1, wide, 256) == 0) return text;
    if (WideCharToMultiByte(CP_UTF8, 0, wide, -1, narrow, sizeof narrow, nullptr, nullptr) == 0) return text;
    return narrow;
}

}  // namespace

std::vector<CameraInfo> listCameras()
{
    std::vector<CameraInfo> cameras;
    const Service service;
    if (service.describe == nullptr) return cameras;
    for (UINT driver = 0; driver < kMaxDrivers; ++driver) {
        char name[200] = {}, version[200] = {};
        if (service.describe(driver, name, sizeof name, version, sizeof version))
            cameras.push_back({utf8(name), "", static_cast<int>(driver)});
    }
    return cameras;
}

std::vector<CameraMode> cameraModes(const CameraInfo& camera)
{
    std::vector<CameraMode> modes;
    const Service service;
    if (service.createWindow == nullptr) return modes;
    const HWND window = service.createWindow(nullptr, 0, 0, 0, 0, 0, HWND_MESSAGE, 0);
    if (window == nullptr) return modes;
    if (SendMessageA(window, WM_CAP_DRIVER_CONNECT, static_cast<WPARAM>(camera.index), 0) != 0) {
        BITMAPINFOHEADER header[8] = {};  // room for a colour table after the first
        if (SendMessageA(window, WM_CAP_GET_VIDEOFORMAT, sizeof header, reinterpret_cast<LPARAM>(header)) !=
            0) {
            std::string format(reinterpret_cast<const char*>(&header[0].biCompression), 4);
            if (header[0].biCompression == BI_RGB) format = "RGB";
            modes.push_back({std::move(format), static_cast<std::uint32_t>(header[0].biWidth),
                             static_cast<std::uint32_t>(std::abs(header[0].biHeight)), 0});
        }
        SendMessageA(window, WM_CAP_DRIVER_DISCONNECT, 0, 0);
    }
    DestroyWindow(window);
    return modes;
}

}  // namespace scansteps

#endif
