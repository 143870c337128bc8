// The cameras of this machine: what they are called and what they deliver. The capture steps choose by it, a
// host lists it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace scansteps {

/// One size and pixel format that a camera offers.
struct CameraMode
{
    std::string format;        ///< four-character code, such as "YUYV" or "MJPG"
    std::uint32_t width = 0;   ///< pixels
    std::uint32_t height = 0;  ///< pixels
    double rate = 0;           ///< highest frame rate a second, 0 when the camera does not say
};

struct CameraInfo
{
    std::string name;  ///< what the driver calls the device, UTF-8
    std::string path;  ///< device path on Linux, empty on Windows
    int index = 0;     ///< number of the device in the system's order
};

/// All cameras that can stream frames, in the system's order. Devices that cannot be opened are left out.
std::vector<CameraInfo> listCameras();
/// What a camera offers; on Windows only the format that it is set to. Empty when the camera does not answer,
/// is in use, or offers something in between only.
std::vector<CameraMode> cameraModes(const CameraInfo& camera);

}  // namespace scansteps
