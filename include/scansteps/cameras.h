// Enumerates the cameras of this machine with the sizes and pixel formats they offer. Used by the capture
// steps to choose a device, and by hosts to list the devices.
#pragma once

#include "scansteps/cpp20.h"

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
    double rate = 0;           ///< highest number of frames per second, 0 if the camera does not report it
};

struct CameraInfo
{
    std::string name;  ///< device name given by the driver, UTF-8
    std::string path;  ///< device path on Linux, empty on Windows
    int index = 0;     ///< position in the system's device order
};

/// All cameras that can stream frames, in the system's device order. Devices that cannot be opened are left
/// out.
std::vector<CameraInfo> listCameras();
/// The modes a camera offers; on Windows only the current one. Of a continuous or stepwise range of sizes,
/// the smallest and the largest are listed. Empty when the camera does not answer or is in use.
std::vector<CameraMode> cameraModes(const CameraInfo& camera);

}  // namespace scansteps
